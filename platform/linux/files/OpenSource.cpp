#include "platform/linux/files/OpenSource.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "platform/FileSystem.h"

namespace platform {
namespace {

constexpr std::chrono::milliseconds kRetryInterval(20);

// After this time the kernel takes a lease away, and a second for it to do so.
std::chrono::seconds leaseLimit() {
  const auto text = file_system::read("/proc/sys/fs/lease-break-time");
  return std::chrono::seconds(std::strtol(text.value_or("45").c_str(), nullptr, 10) + 1);
}

posix::FileDescriptor openNow(int folder, const std::string& name) {
  return posix::FileDescriptor(
      ::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

}  // namespace

posix::FileDescriptor openSource(int folder, const std::string& name, CopyContext& context) {
  using Clock = std::chrono::steady_clock;
  posix::FileDescriptor file = openNow(folder, name);
  if (file || errno != EWOULDBLOCK) return file;
  // Only asking again without waiting never hangs at a pipe that takes the file's place.
  for (const auto end = Clock::now() + leaseLimit(); Clock::now() < end && !context.stopped();) {
    std::this_thread::sleep_for(kRetryInterval);
    file = openNow(folder, name);
    if (file || errno != EWOULDBLOCK) return file;
  }
  errno = EWOULDBLOCK;
  return file;
}

}  // namespace platform
