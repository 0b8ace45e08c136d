#include "platform/linux/privilege/ToolReport.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "channel/Messages.h"

namespace platform {

std::optional<int> takeReport(const posix::FileDescriptor& pipe) {
  channel::TermStatus status = 0;
  ssize_t size = 0;
  do {
    size = ::read(pipe.get(), &status, sizeof status);
  } while (size < 0 && errno == EINTR);
  return size == sizeof status ? std::optional<int>(status) : std::nullopt;
}

void waitForEnd(const posix::FileDescriptor& pipe) {
  while (takeReport(pipe)) {
  }
}

bool isReadable(const posix::FileDescriptor& pipe) {
  pollfd entry{pipe.get(), POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1;
}

}  // namespace platform
