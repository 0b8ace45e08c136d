#include "platform/linux/CopyContents.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace platform {
namespace {

constexpr off_t kBufferSize = 128 * 1024;
// Up to this size reading and writing takes fewer calls than asking the kernel to copy.
constexpr off_t kSmallFile = kBufferSize;
// How much is copied between two looks at whether to stop.
constexpr off_t kSlice = 4 << 20;
constexpr blkcnt_t kBlock = 512;

// One buffer a thread, made when the thread first copies something.
char* threadBuffer() {
  thread_local const std::unique_ptr<char[]> buffer(new char[kBufferSize]);
  return buffer.get();
}

int writeAt(int out, const char* bytes, ssize_t count, off_t offset) {
  while (count > 0) {
    const ssize_t written = ::pwrite(out, bytes, static_cast<std::size_t>(count), offset);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    bytes += written;
    count -= written;
    offset += written;
  }
  return 0;
}

class ContentsCopy {
 public:
  ContentsCopy(int in, int out, CopyContext& context) : in_(in), out_(out), context_(context) {}

  int copyRange(off_t begin, off_t end);
  int copySparse(off_t size);

 private:
  ssize_t copySome(off_t offset, off_t count);
  ssize_t copyThroughMemory(off_t offset, off_t count);

  const int in_;
  const int out_;
  CopyContext& context_;
  bool inKernel_ = true;
};

int ContentsCopy::copyRange(off_t begin, off_t end) {
  while (begin < end) {
    if (context_.stopped()) return ECANCELED;
    const ssize_t copied = copySome(begin, std::min(end - begin, kSlice));
    if (copied < 0 && errno == EINTR) continue;
    if (copied < 0) return errno;
    if (copied == 0) return ESTALE;
    begin += copied;
    context_.countBytes(static_cast<std::uint64_t>(copied));
  }
  return 0;
}

// How many bytes were copied, 0 at the end of the file, -1 and errno.
ssize_t ContentsCopy::copySome(off_t offset, off_t count) {
  if (count <= kSmallFile || !inKernel_) return copyThroughMemory(offset, count);
  off_t from = offset;
  off_t to = offset;
  const ssize_t copied =
      ::copy_file_range(in_, &from, out_, &to, static_cast<std::size_t>(count), 0);
  // Some file systems refuse, some claim to be at the end: memory tells what is really there.
  if (copied > 0) return copied;
  if (copied < 0 && (errno == ENOSPC || errno == EDQUOT || errno == EINTR)) return copied;
  inKernel_ = false;
  return copyThroughMemory(offset, count);
}

ssize_t ContentsCopy::copyThroughMemory(off_t offset, off_t count) {
  char* const buffer = threadBuffer();
  const ssize_t size =
      ::pread(in_, buffer, static_cast<std::size_t>(std::min(count, kBufferSize)), offset);
  if (size <= 0) return size;
  const int error = writeAt(out_, buffer, size, offset);
  if (error == 0) return size;
  errno = error;
  return -1;
}

int ContentsCopy::copySparse(off_t size) {
  off_t begin = 0;
  while (begin < size) {
    begin = ::lseek(in_, begin, SEEK_DATA);
    if (begin < 0 && errno == ENXIO) break;
    if (begin < 0) return errno;
    if (begin >= size) break;
    const off_t hole = ::lseek(in_, begin, SEEK_HOLE);
    if (hole < 0) return errno;
    const off_t end = std::min(hole, size);
    if (const int error = copyRange(begin, end); error != 0) return error;
    begin = end;
  }
  struct stat now {};
  if (::fstat(in_, &now) != 0) return errno;
  if (now.st_size < size) return ESTALE;
  return ::ftruncate(out_, size) == 0 ? 0 : errno;
}

bool isSparse(const struct stat& status) {
  return status.st_blocks < status.st_size / kBlock;
}

bool clone(int in, int out, CopyContext& context) {
  if (!context.mayClone()) return false;
  if (::ioctl(out, FICLONE, in) == 0) return true;
  if (errno != EINTR) context.rememberNoCloning();
  return false;
}

}  // namespace

int copyContents(int in, int out, const struct stat& status, CopyContext& context) {
  const off_t size = status.st_size;
  if (size == 0) return 0;
  if (clone(in, out, context)) {
    context.countBytes(static_cast<std::uint64_t>(size));
    return 0;
  }
  ContentsCopy copy(in, out, context);
  return isSparse(status) ? copy.copySparse(size) : copy.copyRange(0, size);
}

}  // namespace platform
