#include "platform/Console.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <string>

#include "posix/WriteAll.h"

namespace platform::console {
namespace {

// Holds SIGPIPE back from the calling thread, and takes off the one that a write has raised.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard() {
    ::sigemptyset(&brokenPipe_);
    ::sigaddset(&brokenPipe_, SIGPIPE);
    sigset_t pending;
    ::sigpending(&pending);
    wasPending_ = ::sigismember(&pending, SIGPIPE) == 1;
    ::pthread_sigmask(SIG_BLOCK, &brokenPipe_, &previous_);
  }

  ~BrokenPipeGuard() {
    const timespec now{};
    if (!wasPending_) {
      while (::sigtimedwait(&brokenPipe_, nullptr, &now) < 0 && errno == EINTR) {
      }
    }
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }

  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

 private:
  sigset_t brokenPipe_;
  sigset_t previous_;
  bool wasPending_;
};

void writeTo(int descriptor, std::string_view text) {
  const BrokenPipeGuard guard;
  posix::writeAll(descriptor, text);
}

}  // namespace

void writeLine(std::string_view line) {
  std::string ended(line);
  ::syslog(LOG_USER | LOG_NOTICE, "%s", ended.c_str());
  // One write, so that lines of several threads do not mix.
  ended += '\n';
  writeTo(STDERR_FILENO, ended);
}

void print(std::string_view text) {
  writeTo(STDOUT_FILENO, text);
}

}  // namespace platform::console
