#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>

#include "Shared/QVBugReporter.h"
#include "platform/MainThread.h"
#include "tests/support/Notes.h"
#include "tests/support/QuickClock.h"
#include "tests/support/Sandbox.h"
#include "tests/support/ToolRecorder.h"

namespace {

using test::Sandbox;
using testing::ElementsAre;

class QVBugReporterPausesTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    recorder_.emplace(sandbox_);
    test::observePauses(test::notePause);
  }

  // Beside the main thread, which ends what lasts too long.
  static void chown(const std::string& path) {
    std::atomic<bool> done = false;
    std::thread worker([&] {
      QVBugReporter::chownPlist(path);
      done = true;
    });
    while (!done) platform::main_thread::pumpOneEvent(std::chrono::milliseconds(10));
    worker.join();
  }

  Sandbox sandbox_;
  std::optional<test::ToolRecorder> recorder_;
};

TEST_F(QVBugReporterPausesTest, ARecordIsGivenAwayByThisCommandLine) {
  recorder_->standInFor("/usr/sbin/chown");
  chown("/Users/anna/record.plist");
  EXPECT_THAT(recorder_->commands(),
              ElementsAre("/usr/sbin/chown [anna] [/Users/anna/record.plist]"));
}

TEST_F(QVBugReporterPausesTest, AChownThatHangsIsEndedAfterFiveSeconds) {
  recorder_->standInFor("/usr/sbin/chown", "exec sleep 60");
  chown("/Users/anna/record.plist");
  EXPECT_THAT(test::notes(), ElementsAre("sleeps 5 s"));
}

}  // namespace
