#include "elevator/Spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace elevator {
namespace {

// What a tool sees of the world, in place of what the user had in the environment.
std::array<char*, 4> environment() {
  static char path[] = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
  static char home[] = "HOME=/root";
  static char language[] = "LANG=C.UTF-8";
  return {path, home, language, nullptr};
}

class Attributes {
 public:
  Attributes() {
    ::posix_spawnattr_init(&value_);
    sigset_t signals;
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&value_, &signals);
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&value_, &signals);
    ::posix_spawnattr_setflags(&value_,
                               POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
  }
  ~Attributes() { ::posix_spawnattr_destroy(&value_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  const posix_spawnattr_t* get() const { return &value_; }

 private:
  posix_spawnattr_t value_{};
};

class Actions {
 public:
  // The first descriptor that a program does not have by itself.
  static constexpr int kScript = 3;

  Actions(const Tool& tool, const posix::FileDescriptor& output) {
    ::posix_spawn_file_actions_init(&value_);
    if (output) ::posix_spawn_file_actions_adddup2(&value_, output.get(), STDOUT_FILENO);
    if (tool.isScript) ::posix_spawn_file_actions_adddup2(&value_, tool.file.get(), kScript);
  }
  ~Actions() { ::posix_spawn_file_actions_destroy(&value_); }
  Actions(const Actions&) = delete;
  Actions& operator=(const Actions&) = delete;

  const posix_spawn_file_actions_t* get() const { return &value_; }

 private:
  posix_spawn_file_actions_t value_{};
};

// Ends a tool that has no descriptor, and answers why it has none.
int giveUp(pid_t pid) {
  const int error = errno;
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
  return error;
}

}  // namespace

int spawn(const Tool& tool, const std::vector<std::string>& words,
          const posix::FileDescriptor& output, posix::FileDescriptor& process) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  // The file's own descriptor closes when the program starts, which is too early for the
  // interpreter of a script.
  const int number = tool.isScript ? Actions::kScript : tool.file.get();
  const std::string file = "/proc/self/fd/" + std::to_string(number);
  const Attributes attributes;
  const Actions actions(tool, output);
  // A tool that could not be waited for is not even started: the place for its descriptor is kept.
  posix::FileDescriptor place(::fcntl(tool.file.get(), F_DUPFD_CLOEXEC, 0));
  if (!place) return errno;
  pid_t pid = 0;
  const int status = ::posix_spawn(&pid, file.c_str(), actions.get(), attributes.get(),
                                   arguments.data(), environment().data());
  if (status != 0) return status;
  place = posix::FileDescriptor();
  // Nobody else waits for it, so the number cannot have been given to another process.
  process = posix::FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  return process ? 0 : giveUp(pid);
}

channel::TermStatus collect(const posix::FileDescriptor& process) {
  siginfo_t end{};
  while (::waitid(P_PIDFD, static_cast<id_t>(process.get()), &end, WEXITED) != 0) {
    if (errno != EINTR) return -1;
  }
  return end.si_status;
}

}  // namespace elevator
