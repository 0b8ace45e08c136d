#include "elevator/Jobs.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

#include "elevator/Tool.h"
#include "tests/support/Sandbox.h"

namespace {

using elevator::Job;
using elevator::Jobs;

class JobsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::Sandbox::canSimulateMachine()) GTEST_SKIP() << test::Sandbox::kNeedsRoot;
  }
  ~JobsTest() override {
    for (int left = kMany; left > 0 && !jobs_.running().empty(); --left) endOne();
  }

  // More than are ever added.
  static constexpr int kMany = 32;

  // A tool that lasts, on a path of its own.
  void addTool() {
    Job job;
    job.words = {"/bin/sleep", "60"};
    job.tool = elevator::openTool("/bin/sleep");
    ASSERT_EQ(jobs_.add(std::move(job)), 0);
  }
  void endOne() {
    const int process = jobs_.running().front();
    ::syscall(SYS_pidfd_send_signal, process, SIGKILL, nullptr, 0);
    pollfd entry{process, POLLIN, 0};
    ASSERT_EQ(::poll(&entry, 1, 10'000), 1);
    jobs_.finish(process);
  }

  Jobs jobs_;
};

TEST_F(JobsTest, SixteenToolsRunAtOnceAndTheNextWhenOneOfThemHasEnded) {
  for (int i = 0; i < 16; ++i) addTool();
  EXPECT_EQ(jobs_.running().size(), 16U);
  EXPECT_FALSE(jobs_.hasWaiting());
  addTool();
  EXPECT_EQ(jobs_.running().size(), 16U);
  EXPECT_TRUE(jobs_.hasWaiting());
  endOne();
  EXPECT_EQ(jobs_.running().size(), 16U);
  EXPECT_FALSE(jobs_.hasWaiting());
}

}  // namespace
