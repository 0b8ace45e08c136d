#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "Shared/QVTaskNotification.h"
#include "tests/support/CallbackHost.h"
#include "tests/support/Notes.h"
#include "tests/support/QuickClock.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SessionBus.h"

namespace {

using test::Sandbox;
using testing::ElementsAre;
using testing::IsEmpty;

class QVTaskNotificationPausesTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    sandbox_.becomeUser(Sandbox::kConsoleUser);
    bus_.emplace(sandbox_);
    bus_->announce();
    test::observePauses(test::notePause);
  }

  Sandbox sandbox_;
  std::optional<test::SessionBus> bus_;
};

TEST_F(QVTaskNotificationPausesTest, FifteenMillisecondsFollowAMessageToAHost) {
  const test::CallbackHost host(
      {"--name", "QVProClientCallback", "--answers", "incrementRemoteProgress"});
  QVTaskNotification::postIncrementProgress();
  EXPECT_THAT(test::notes(), ElementsAre("sleeps 0.015 s"));
}

TEST_F(QVTaskNotificationPausesTest, TheyFollowAMessageThatTheHostDoesNotAnswerToo) {
  const test::CallbackHost host(
      {"--name", "QVProClientCallback", "--answers", "incrementRemoteProgress"});
  QVTaskNotification::postTaskFinished();
  EXPECT_THAT(test::notes(), ElementsAre("sleeps 0.015 s"));
}

TEST_F(QVTaskNotificationPausesTest, NothingFollowsWhereThereIsNoHost) {
  QVTaskNotification::postTaskFinished();
  EXPECT_THAT(test::notes(), IsEmpty());
}

}  // namespace
