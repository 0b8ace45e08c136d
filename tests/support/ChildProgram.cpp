#include "tests/support/ChildProgram.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>

#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace test {
namespace {

constexpr std::chrono::seconds kLongestRun(20);

// The letter of proc(5) for what a process does.
char stateOf(pid_t id) {
  const std::string status = readFile("/proc/" + std::to_string(id) + "/stat");
  const std::size_t name = status.rfind(')');
  return name == std::string::npos || name + 2 >= status.size() ? 'X' : status[name + 2];
}

}  // namespace

ChildProgram::ChildProgram(const std::vector<std::string>& command) {
  start(command, [] { return true; });
}

ChildProgram::ChildProgram(const std::vector<std::string>& command, unsigned userId) {
  start(command, [userId] {
    return ::setgroups(0, nullptr) == 0 && ::setresgid(userId, userId, userId) == 0 &&
           ::setresuid(userId, userId, userId) == 0;
  });
}

void ChildProgram::start(const std::vector<std::string>& command,
                         const std::function<bool()>& prepare) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
  id_ = ::fork();
  if (id_ == 0) {
    std::vector<char*> words;
    for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    if (prepare() && ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && ::dup2(ends[1], 1) == 1) {
      ::execv(words[0], words.data());
    }
    ::_exit(127);
  }
  ::close(ends[1]);
  output_ = ends[0];
  if (id_ < 0) throw std::system_error(errno, std::generic_category());
  ::fcntl(output_, F_SETFL, O_NONBLOCK);
}

ChildProgram::~ChildProgram() {
  if (id_ > 0) {
    ::kill(id_, SIGKILL);
    ::waitpid(id_, nullptr, 0);
  }
  ::close(output_);
}

bool ChildProgram::isRunning() const {
  const char state = stateOf(id_);
  return state != 'X' && state != 'Z';
}

bool ChildProgram::isStopped() const {
  return stateOf(id_) == 'T';
}

void ChildProgram::signal(int number) const {
  ::kill(id_, number);
}

std::optional<int> ChildProgram::waitForEnd() {
  int status = 0;
  const auto hasEnded = [&] { return ::waitpid(id_, &status, WNOHANG) == id_; };
  if (!waitFor(hasEnded, kLongestRun)) return std::nullopt;
  id_ = -1;
  return status;
}

const std::vector<std::string>& ChildProgram::lines() {
  char buffer[4096];
  ssize_t size = 0;
  while ((size = ::read(output_, buffer, sizeof buffer)) > 0) {
    partialLine_.append(buffer, static_cast<std::size_t>(size));
  }
  for (std::size_t end; (end = partialLine_.find('\n')) != std::string::npos;) {
    lines_.push_back(partialLine_.substr(0, end));
    partialLine_.erase(0, end + 1);
  }
  return lines_;
}

bool ChildProgram::waitForLine(std::string_view beginning) {
  return waitFor([&] {
    return std::ranges::any_of(
        lines(), [&](const std::string& line) { return line.starts_with(beginning); });
  });
}

bool ChildProgram::waitForLines(std::size_t count) {
  return waitFor([&] { return lines().size() >= count; });
}

}  // namespace test
