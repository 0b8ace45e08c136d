#include "platform/linux/privilege/ToolReport.h"

#include <unistd.h>

#include <cerrno>

#include "channel/Messages.h"

namespace platform {

int takeReport(const posix::FileDescriptor& pipe) {
  channel::TermStatus status = 0;
  ssize_t size = 0;
  do {
    size = ::read(pipe.get(), &status, sizeof status);
  } while (size < 0 && errno == EINTR);
  return size == sizeof status ? status : kUnknownEnd;
}

}  // namespace platform
