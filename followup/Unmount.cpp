#include "followup/Unmount.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace followup {
namespace {

constexpr char kTool[] = "/usr/bin/umount";
constexpr std::string_view kBusy = "target is busy.";

std::vector<std::string> commandLine(const std::string& mountPoint) {
  // The path is followed no further than we have looked. Only root may ask for that; for everybody
  // else the tool looks itself, with that person's rights.
  if (::geteuid() == 0) return {kTool, "--no-canonicalize", "--", mountPoint};
  return {kTool, "--", mountPoint};
}

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> block;
  for (;;) {
    const ssize_t count = ::read(descriptor, block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return text;
    text.append(block.data(), static_cast<std::size_t>(count));
  }
}

// Starts the tool with its standard error at `error`; answers an error number.
int start(const std::vector<std::string>& words, int error, pid_t& process) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  // Its words are compared, so it speaks no other language.
  std::array<char*, 2> environment = {const_cast<char*>("LC_ALL=C"), nullptr};
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDWR, 0);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_RDWR, 0);
  ::posix_spawn_file_actions_adddup2(&actions, error, STDERR_FILENO);
  const int result =
      ::posix_spawn(&process, kTool, &actions, nullptr, arguments.data(), environment.data());
  ::posix_spawn_file_actions_destroy(&actions);
  return result;
}

bool endedWell(pid_t process) {
  int status = -1;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

UnmountResult unmount(const std::string& mountPoint) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return {.message = std::strerror(errno)};
  pid_t process = 0;
  const int error = start(commandLine(mountPoint), ends[1], process);
  ::close(ends[1]);
  UnmountResult result;
  if (error != 0) {
    result.message = std::string(kTool) + ": " + std::strerror(error);
  } else {
    result.message = readAll(ends[0]);
    result.done = endedWell(process);
  }
  ::close(ends[0]);
  while (result.message.ends_with('\n')) result.message.pop_back();
  // At the end, because the mount point stands before it and may be called anything.
  result.busy = !result.done && result.message.ends_with(kBusy);
  return result;
}

}  // namespace followup
