#include "sessionhelper/Start.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/linux/SessionHelperVerbs.h"
#include "posix/PipeEnds.h"
#include "sessionhelper/Person.h"
#include "sessionhelper/Verbs.h"

namespace session_helper {
namespace {

// A program on a file system that does not answer is given up waiting for, not given up.
constexpr int kStartMilliseconds = 5000;

struct Child {
  pid_t id = -1;
  posix::FileDescriptor errorEnd;  // Tells why it did not start.
};

[[noreturn]] void becomeProgram(const std::vector<std::string>& command, int errorEnd) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);

  ::setsid();
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  bool ready = null >= 0;
  for (int end = 0; end <= 2; ++end) ready = ready && ::dup2(null, end) == end;
  if (ready) {
    ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    ::execv(words[0], words.data());
  }
  const int reason = errno;
  // Nobody to tell when even this fails: the parent then sees a start.
  if (::write(errorEnd, &reason, sizeof reason) < 0) ::_exit(126);
  ::_exit(127);
}

// This program has one thread and little memory, so that a fork is safe and cheap here.
Child startChild(const std::vector<std::string>& command) {
  posix::PipeEnds pipe = posix::makePipe();
  if (!pipe.reading) return {};
  const pid_t id = ::fork();
  if (id == 0) becomeProgram(command, pipe.writing.get());
  return id < 0 ? Child{} : Child{id, std::move(pipe.reading)};
}

// 0 once the pipe has closed in the exec, or when the program takes its time.
int startError(const Child& child) {
  if (child.id < 0) return errno;
  pollfd end = {child.errorEnd.get(), POLLIN, 0};
  int reason = 0;
  const bool told = ::poll(&end, 1, kStartMilliseconds) == 1 &&
                    ::read(child.errorEnd.get(), &reason, sizeof reason) == sizeof reason;
  return told ? reason : 0;
}

}  // namespace

int startDetached(const std::vector<std::string>& command) {
  return startError(startChild(command));
}

bool runToEnd(const std::vector<std::string>& command, int seconds) {
  const Child child = startChild(command);
  if (startError(child) != 0) return false;
  const posix::FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, child.id, 0)));
  pollfd end = {process.get(), POLLIN, 0};
  if (!process || ::poll(&end, 1, seconds * 1000) != 1) return false;
  int status = 0;
  return ::waitpid(child.id, &status, 0) == child.id && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

int start(const Arguments& arguments) {
  const auto order = platform::helper_verb::parsed<platform::helper_verb::Start>(arguments);
  if (!order || order->command.empty() || !order->command.front().starts_with('/')) {
    return kUsageError;
  }
  if (!becomePerson()) return kFailure;
  const int reason = startDetached(order->command);
  if (reason == 0) return 0;
  std::fprintf(stderr, "session-helper: cannot start %s: %s\n", order->command.front().c_str(),
               std::strerror(reason));
  return kFailure;
}

}  // namespace session_helper
