#include "platform/linux/processes/ChildHandle.h"

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace platform {
namespace {

// waitid(2) for that child alone, repeated when a signal interrupts it.
int waitFor(const ChildHandle& child, siginfo_t& info, int options) {
  int result = 0;
  do {
    result = child.pidfd ? ::waitid(P_PIDFD, static_cast<id_t>(child.pidfd.get()), &info, options)
                         : ::waitid(P_PID, static_cast<id_t>(child.id), &info, options);
  } while (result < 0 && errno == EINTR);
  return result;
}

}  // namespace

ChildHandle::ChildHandle(pid_t process)
    : id(process), pidfd(static_cast<int>(::syscall(SYS_pidfd_open, process, 0))) {}

std::optional<int> collect(const ChildHandle& child) {
  siginfo_t info = {};
  if (waitFor(child, info, WEXITED | WNOHANG) < 0) return kLostStatus;
  if (info.si_pid == 0) return std::nullopt;
  return info.si_status;
}

void waitForEnd(const ChildHandle& child) {
  siginfo_t info = {};
  waitFor(child, info, WEXITED | WNOWAIT);
}

}  // namespace platform
