// The main function of all test programs.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "tests/support/PrivateMachine.h"

namespace {

// A descriptor that is opened later must not be taken for a standard one.
void openStandardDescriptors() {
  int lowest = 0;
  while ((lowest = ::open("/dev/null", O_RDWR)) >= 0 && lowest <= STDERR_FILENO) {
  }
  ::close(lowest);
}

// Some tests hold more files open than a shell's usual limit of 1,024.
void allowManyFiles() {
  constexpr rlim_t kMany = 8192;
  rlimit limit = {};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::max(limit.rlim_cur, std::min(kMany, limit.rlim_max));
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

// What a shell, a container or a service manager may have left otherwise than tests expect it.
void setSurroundings() {
  openStandardDescriptors();
  allowManyFiles();
  ::umask(022);
  const char* temporary = std::getenv("TMPDIR");
  if (temporary != nullptr && !std::filesystem::is_directory(temporary)) ::unsetenv("TMPDIR");
}

}  // namespace

int main(int argc, char** argv) {
  setSurroundings();
  testing::InitGoogleMock(&argc, argv);
  const auto runTests = [] { return RUN_ALL_TESTS(); };
  return testing::GTEST_FLAG(list_tests) ? runTests() : test::PrivateMachine::run(runTests);
}
