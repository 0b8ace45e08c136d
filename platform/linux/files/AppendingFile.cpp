#include "platform/AppendingFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <mutex>
#include <utility>

#include "platform/linux/SystemError.h"
#include "posix/FileDescriptor.h"
#include "posix/WriteAll.h"

namespace platform {
namespace {

class DescriptorFile final : public AppendingFile {
 public:
  explicit DescriptorFile(posix::FileDescriptor descriptor) : descriptor_(std::move(descriptor)) {}

  Appended append(std::string_view bytes) override {
    const std::lock_guard guard(mutex_);
    if (!descriptor_) return {0, statusFromErrno(EBADF)};
    const posix::WriteResult result = posix::writeAll(descriptor_.get(), bytes);
    return {result.written, statusFromErrno(result.error)};
  }

  void close() override {
    const std::lock_guard guard(mutex_);
    descriptor_.reset();
  }

 private:
  std::mutex mutex_;
  posix::FileDescriptor descriptor_;  // guarded by mutex_
};

bool isRegularFile(const posix::FileDescriptor& file) {
  struct stat status {};
  return ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

// static
std::shared_ptr<AppendingFile> AppendingFile::open(const std::string& path) {
  // Without O_NONBLOCK a pipe of that name would hold the caller until somebody reads it.
  const posix::FileDescriptor opened(
      ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!opened || !isRegularFile(opened)) return nullptr;
  // Never a standard descriptor, free as it may be: what others print would land in the file.
  posix::FileDescriptor descriptor(::fcntl(opened.get(), F_DUPFD_CLOEXEC, 3));
  if (!descriptor) return nullptr;
  return std::make_shared<DescriptorFile>(std::move(descriptor));
}

}  // namespace platform
