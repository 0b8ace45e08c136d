#include "platform/linux/privilege/ElevatorStart.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <memory>

#include "tests/support/ProcessState.h"
#include "tests/support/Sandbox.h"
#include "tests/support/ToolRecorder.h"
#include "tests/support/WaitFor.h"

namespace {

using test::Sandbox;

TEST(ElevatorStartTest, WhoAsksThePersonIsEndedAtTheLimit) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  Sandbox sandbox;
  sandbox.simulateMachine();
  test::ToolRecorder recorder(sandbox);
  recorder.standInFor("/usr/bin/pkexec", "exec sleep 60");
  sandbox.becomeUser(Sandbox::kConsoleUser);

  const std::size_t before = test::children();
  int ends[2] = {-1, -1};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  platform::ElevatorChannel channel{posix::FileDescriptor(ends[0])};
  std::unique_ptr<platform::ChildProcess> elevator;
  EXPECT_EQ(platform::startElevator(channel, posix::FileDescriptor(ends[1]), {},
                                    std::chrono::milliseconds(300), elevator),
            platform::privilege::Outcome::timedOut);
  EXPECT_EQ(elevator, nullptr);
  EXPECT_TRUE(test::waitFor([&] { return test::children() == before; }));
}

}  // namespace
