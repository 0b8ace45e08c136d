#include "elevator/Spawn.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "elevator/Tool.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sandbox.h"

namespace {

using test::Sandbox;

// Every descriptor that this process may still have.
std::vector<posix::FileDescriptor> allDescriptors() {
  constexpr rlim_t kFew = 64;
  const rlimit few{kFew, kFew};
  EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  std::vector<posix::FileDescriptor> all;
  while (posix::FileDescriptor next{::open("/dev/null", O_RDONLY | O_CLOEXEC)}) {
    all.push_back(std::move(next));
  }
  return all;
}

TEST(SpawnTest, AToolThatCouldNotBeWaitedForIsNotStarted) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const Sandbox sandbox;
  const std::string made = sandbox.path("made");
  const elevator::Tool tool = elevator::openTool("/bin/mkdir");
  ASSERT_EQ(tool.status, 0);
  const std::size_t before = test::children();
  posix::FileDescriptor process;
  const posix::FileDescriptor life(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  const elevator::ToolEnds ends = {{}, life.get()};
  std::vector<posix::FileDescriptor> all = allDescriptors();
  EXPECT_EQ(elevator::spawn(tool, {"/bin/mkdir", made}, ends, process), EMFILE);
  all.clear();
  EXPECT_EQ(test::children(), before) << "nothing runs of which nobody knows";

  all = allDescriptors();
  constexpr std::size_t kEnough = 12;
  all.resize(all.size() - kEnough);
  EXPECT_EQ(elevator::spawn(tool, {"/bin/mkdir", made}, ends, process), 0) << "some are enough";
  EXPECT_EQ(elevator::collect(process), 0);
  EXPECT_TRUE(std::filesystem::exists(made));
}

}  // namespace
