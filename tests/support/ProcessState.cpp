#include "tests/support/ProcessState.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace test {
namespace {

std::size_t entries(const char* directory) {
  const std::filesystem::directory_iterator begin(directory);
  return static_cast<std::size_t>(std::distance(begin, {}));
}

bool isNumber(const std::string& text) {
  return text.find_first_not_of("0123456789") == std::string::npos;
}

// proc(5): the process id, the name in parentheses, the state, the parent. None for what is no
// process, or no longer one.
std::optional<pid_t> parentOf(const std::filesystem::path& process) {
  if (!isNumber(process.filename())) return std::nullopt;
  // A stream, because a process may be gone by the time it is read.
  std::ifstream file(process / "stat");
  std::string stat;
  std::getline(file, stat);
  const std::size_t name = stat.rfind(')');
  if (name == std::string::npos) return std::nullopt;
  std::istringstream fields(stat.substr(name + 1));
  std::string state;
  pid_t parent = 0;
  fields >> state >> parent;
  return parent;
}

}  // namespace

bool ignores(pid_t process, int signal) {
  constexpr std::string_view kMask = "SigIgn:\t";
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(kMask)) continue;
    return (std::stoull(line.substr(kMask.size()), nullptr, 16) >> (signal - 1) & 1U) != 0;
  }
  return false;
}

std::size_t openDescriptors() {
  // One of them is the one that reads the directory.
  return entries("/proc/self/fd") - 1;
}

std::size_t threads() {
  const std::size_t all = entries("/proc/self/task");
#ifdef __SANITIZE_THREAD__
  // Its own: one from the start and, in a child as tests are, another with the first thread.
  return all > 2 ? all - 2 : 1;
#else
  return all;
#endif
}

std::vector<pid_t> childIds() {
  return childIdsOf(::getpid());
}

std::vector<pid_t> childIdsOf(pid_t process) {
  std::vector<pid_t> ids;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    if (parentOf(entry.path()) == process) ids.push_back(std::stoi(entry.path().filename()));
  }
  return ids;
}

std::size_t children() {
  return childIds().size();
}

}  // namespace test
