#include "platform/linux/files/CopyContents.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <vector>

namespace platform {
namespace {

constexpr off_t kBufferSize = 128 * 1024;
// Up to this size reading and writing takes fewer calls than asking the kernel to copy.
constexpr off_t kSmallFile = kBufferSize;
// What is copied between two looks at whether to stop: as much as takes about this long, so that a
// slow disk is stopped as soon as a fast one.
constexpr std::chrono::milliseconds kSliceTime{20};
constexpr off_t kSmallestSlice = kBufferSize;
// No more even on a fast disk: it is slow as soon as the system's memory for it is full.
constexpr off_t kLargestSlice = 1 << 20;
constexpr blkcnt_t kBlock = 512;

// One buffer a thread, made when the thread first copies something.
char* threadBuffer() {
  thread_local std::vector<char> buffer(kBufferSize);
  return buffer.data();
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
  ContentsCopy(const OpenFiles& files, CopyContext& context)
      : files_(files), in_(files.in), out_(files.out), context_(context) {}

  // 0 or an error number.
  int run();

 private:
  bool clone();
  int copyRange(off_t begin, off_t end);
  int copySparse();
  ssize_t copySlice(off_t offset, off_t count);
  ssize_t copySome(off_t offset, off_t count);
  ssize_t copyThroughMemory(off_t offset, off_t count);
  void countBytes(off_t bytes);

  const OpenFiles& files_;
  const int in_;
  const int out_;
  CopyContext& context_;
  off_t slice_ = kLargestSlice;
  bool inKernel_ = true;
};

int ContentsCopy::run() {
  if (clone()) {
    countBytes(files_.status.st_size);
    return 0;
  }
  const bool sparse = files_.status.st_blocks < files_.status.st_size / kBlock;
  return sparse ? copySparse() : copyRange(0, files_.status.st_size);
}

bool ContentsCopy::clone() {
  if (!context_.mayClone()) return false;
  if (::ioctl(out_, FICLONE, in_) == 0) return true;
  if (errno != EINTR) context_.rememberNoCloning();
  return false;
}

void ContentsCopy::countBytes(off_t bytes) {
  context_.countBytes(static_cast<std::uint64_t>(bytes), files_.places.sourceFolder,
                      files_.places.sourceName);
}

int ContentsCopy::copyRange(off_t begin, off_t end) {
  while (begin < end) {
    if (context_.stopped()) return ECANCELED;
    const ssize_t copied = copySlice(begin, end - begin);
    if (copied < 0 && errno == EINTR) continue;
    if (copied < 0) return errno;
    if (copied == 0) return ESTALE;
    begin += copied;
    countBytes(copied);
  }
  return 0;
}

// How many bytes were copied, 0 at the end of the file, -1 and errno.
ssize_t ContentsCopy::copySlice(off_t offset, off_t count) {
  if (count <= slice_) return copySome(offset, count);
  const auto start = std::chrono::steady_clock::now();
  const ssize_t copied = copySome(offset, slice_);
  const bool quick = std::chrono::steady_clock::now() - start < kSliceTime / 2;
  slice_ = quick ? std::min(slice_ * 2, kLargestSlice) : std::max(slice_ / 2, kSmallestSlice);
  return copied;
}

// The same, of at most `count` bytes and in one go.
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

int ContentsCopy::copySparse() {
  const off_t size = files_.status.st_size;
  off_t done = 0;
  while (done < size) {
    const off_t begin = ::lseek(in_, done, SEEK_DATA);
    if (begin < 0 && errno != ENXIO) return errno;
    if (begin < 0 || begin >= size) break;
    const off_t hole = ::lseek(in_, begin, SEEK_HOLE);
    if (hole < 0) return errno;
    countBytes(begin - done);
    done = std::min(hole, size);
    if (const int error = copyRange(begin, done); error != 0) return error;
  }
  countBytes(size - done);
  struct stat now {};
  if (::fstat(in_, &now) != 0) return errno;
  if (now.st_size < size) return ESTALE;
  return ::ftruncate(out_, size) == 0 ? 0 : errno;
}

}  // namespace

int copyContents(const OpenFiles& files, CopyContext& context) {
  return files.status.st_size == 0 ? 0 : ContentsCopy(files, context).run();
}

}  // namespace platform
