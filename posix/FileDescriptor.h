#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace posix {

// Owns one open file descriptor, or none. Letting go of it leaves errno as it was, so that a
// function may return on a failed call and its caller still reads why.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) reset(std::exchange(other.descriptor_, -1));
    return *this;
  }
  ~FileDescriptor() { reset(); }

  explicit operator bool() const noexcept { return descriptor_ >= 0; }
  int get() const noexcept { return descriptor_; }
  int release() noexcept { return std::exchange(descriptor_, -1); }

  void reset(int descriptor = -1) noexcept {
    const int old = std::exchange(descriptor_, descriptor);
    if (old < 0) return;
    const int error = errno;
    ::close(old);
    errno = error;
  }

 private:
  int descriptor_ = -1;
};

}  // namespace posix
