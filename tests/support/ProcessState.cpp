#include "tests/support/ProcessState.h"

#include <sys/wait.h>

#include <filesystem>
#include <iterator>

namespace test {
namespace {

std::size_t entries(const char* directory) {
  const std::filesystem::directory_iterator begin(directory);
  return static_cast<std::size_t>(std::distance(begin, {}));
}

}  // namespace

std::size_t openDescriptors() {
  // One of them is the one that reads the directory.
  return entries("/proc/self/fd") - 1;
}

std::size_t threads() {
  return entries("/proc/self/task");
}

bool hasChildren() {
  siginfo_t info = {};
  return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

}  // namespace test
