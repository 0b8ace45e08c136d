#include "elevator/Spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "elevator/View.h"
#include "posix/PipeEnds.h"

namespace elevator {
namespace {

// What a tool has behind its standard ends: what tells of its own end, and the file of a script.
constexpr int kLife = 3;
constexpr int kScript = 4;
constexpr int kFirstFree = 5;

// What a tool sees of the world, in place of what the user had in the environment.
std::array<char*, 4> environment() {
  static char path[] = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
  static char home[] = "HOME=/root";
  static char language[] = "LANG=C.UTF-8";
  return {path, home, language, nullptr};
}

// By the kernel's own call, since the C library keeps two of the signals for itself.
void resetSignals() {
  // No handler, no flags, no mask, in whatever order the machine has them.
  const std::array<unsigned long, 4> byDefault{};
  constexpr std::size_t kMaskSize = 8;
  for (int number = 1; number <= 64; ++number) {
    ::syscall(SYS_rt_sigaction, number, byDefault.data(), nullptr, kMaskSize);
  }
  // What a session's end sends to everybody: half a bundle would be left.
  ::signal(SIGHUP, SIG_IGN);
  ::signal(SIGTERM, SIG_IGN);
  const unsigned long long none = 0;
  ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, kMaskSize);
}

// A copy that is out of the way of the places, and closed on exec.
int aside(int descriptor) {
  return ::fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstFree);
}

int place(int descriptor, int number) {
  return descriptor >= 0 && ::dup2(descriptor, number) == number ? 0 : errno;
}

// Becomes the tool; returns only when that fails, with the reason.
int become(const Tool& tool, std::vector<std::string> words, const ToolEnds& ends) {
  ::setsid();
  resetSignals();
  const int output = ends.output ? aside(ends.output.get()) : STDOUT_FILENO;
  const int file = aside(tool.file.get());
  int status = place(output, STDOUT_FILENO);
  if (status == 0 && ends.life >= 0) status = place(aside(ends.life), kLife);
  // The file's own descriptor closes when the program starts, which is too early for the
  // interpreter of a script.
  if (status == 0 && tool.isScript) status = place(file, kScript);
  if (status == 0) status = enterView(words);
  if (status != 0) return status;
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const std::string path = "/proc/self/fd/" + std::to_string(tool.isScript ? kScript : file);
  ::execve(path.c_str(), arguments.data(), environment().data());
  return errno;
}

// 0 once the pipe has closed in the exec.
int startError(const posix::FileDescriptor& pipe) {
  int reason = 0;
  ssize_t size = 0;
  do {
    size = ::read(pipe.get(), &reason, sizeof reason);
  } while (size < 0 && errno == EINTR);
  return size == sizeof reason ? reason : 0;
}

}  // namespace

int spawn(const Tool& tool, const std::vector<std::string>& words, const ToolEnds& ends,
          posix::FileDescriptor& process) {
  posix::PipeEnds failure = posix::makePipe();
  // A tool that could not be waited for is not even started: the place for its descriptor is kept.
  posix::FileDescriptor kept(::fcntl(tool.file.get(), F_DUPFD_CLOEXEC, 0));
  if (!failure.reading || !kept) return errno;
  const pid_t pid = ::fork();
  if (pid < 0) return errno;
  if (pid == 0) {
    const int telling = aside(failure.writing.get());
    const int reason = telling < 0 ? errno : become(tool, words, ends);
    const int told = telling < 0 ? failure.writing.get() : telling;
    [[maybe_unused]] const ssize_t written = ::write(told, &reason, sizeof reason);
    ::_exit(127);
  }
  failure.writing = posix::FileDescriptor();
  const int status = startError(failure.reading);
  if (status != 0) {
    ::waitpid(pid, nullptr, 0);
    return status;
  }
  kept = posix::FileDescriptor();
  // Nobody else waits for it, so the number cannot have been given to another process.
  process = posix::FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  if (process) return 0;
  const int error = errno;
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
  return error;
}

channel::TermStatus collect(const posix::FileDescriptor& process) {
  siginfo_t end{};
  while (::waitid(P_PIDFD, static_cast<id_t>(process.get()), &end, WEXITED) != 0) {
    if (errno != EINTR) return -1;
  }
  return end.si_status;
}

}  // namespace elevator
