#include "platform/linux/privilege/ElevatorStart.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>

#include "tests/support/Sandbox.h"
#include "tests/support/ToolRecorder.h"
#include "tests/support/UpdateMachine.h"
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

  int ends[2] = {-1, -1};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  platform::ElevatorChannel channel{posix::FileDescriptor(ends[0])};
  std::unique_ptr<platform::ChildProcess> elevator;
  EXPECT_EQ(platform::startElevator(channel, posix::FileDescriptor(ends[1]), {},
                                    std::chrono::seconds(2), elevator),
            platform::privilege::Outcome::timedOut);
  EXPECT_EQ(elevator, nullptr);
  ASSERT_EQ(recorder.runs().size(), 1U);
  EXPECT_TRUE(test::waitFor([&] { return !test::isRunning(recorder.runs()[0].pid); }));
}

}  // namespace
