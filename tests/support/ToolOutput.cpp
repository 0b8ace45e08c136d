#include "tests/support/ToolOutput.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <system_error>

namespace test {
namespace {

void check(bool ok, const char* what) {
  if (!ok) throw std::system_error(errno, std::generic_category(), what);
}

// In the child: becomes the shell.
[[noreturn]] void runShell(const char* command, int output) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int nowhere = ::open("/dev/null", O_RDWR);
  for (const int end : {STDIN_FILENO, STDERR_FILENO}) ::dup2(nowhere, end);
  ::dup2(output, STDOUT_FILENO);
  ::execl("/bin/sh", "sh", "-c", command, static_cast<char*>(nullptr));
  ::_exit(127);
}

std::string readAll(int descriptor) {
  std::string output;
  char buffer[65536];
  for (ssize_t count = 0; (count = ::read(descriptor, buffer, sizeof buffer)) > 0;) {
    output.append(buffer, static_cast<std::size_t>(count));
  }
  return output;
}

}  // namespace

std::string outputOf(const std::string& command) {
  int ends[2];
  check(::pipe2(ends, O_CLOEXEC) == 0, "pipe");
  const pid_t child = ::fork();
  check(child >= 0, "fork");
  if (child == 0) runShell(command.c_str(), ends[1]);
  ::close(ends[1]);
  std::string output = readAll(ends[0]);
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  return output;
}

bool hasTool(const std::string& name) {
  return !outputOf("command -v " + name).empty();
}

}  // namespace test
