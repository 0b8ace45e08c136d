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

// A name in a line may hold anything; in the system's log it must not look like another line, nor
// steer the terminal of whoever reads it.
std::string visible(std::string_view line) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string result;
  for (const char c : line) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= ' ' && byte != 0x7f) {
      result += c;
    } else {
      result += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return result;
}

void writeTo(int descriptor, std::string_view text) {
  const BrokenPipeGuard guard;
  posix::writeAll(descriptor, text);
}

}  // namespace

void writeLine(std::string_view line) {
  std::string ended(line);
  ::syslog(LOG_USER | LOG_NOTICE, "%s", visible(line).c_str());
  // One write, so that lines of several threads do not mix.
  ended += '\n';
  writeTo(STDERR_FILENO, ended);
}

void print(std::string_view text) {
  writeTo(STDOUT_FILENO, text);
}

}  // namespace platform::console
