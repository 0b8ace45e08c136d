#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/CallbackHost.h"
#include "tests/support/SessionBus.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"

// Whole silent updates by the built application, as superuser, with a host application of the
// person at the console beside it.
namespace {

using test::CallbackHost;
using test::Sandbox;
using test::UpdateMachine;
using testing::ElementsAre;
using testing::StartsWith;

class HostTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    machine_.emplace(UpdateMachine::Pauses::quick);
    bus_.emplace(machine_->sandbox(), Sandbox::kConsoleUserId);
    bus_->announce();
    machine_->makeBundle(machine_->destination(), "1.0");
    machine_->makeBundle(machine_->source(), "2.0");
  }

  void update() {
    EXPECT_EQ(machine_->run({"-source", machine_->source(), "-destination", machine_->destination(),
                             "-silent", "YES"}),
              0);
    EXPECT_TRUE(test::waitFor(
        [this] { return UpdateMachine::versionOf(machine_->destination()) == "2.0"; }));
  }

 private:
  std::optional<UpdateMachine> machine_;
  std::optional<test::SessionBus> bus_;
};

TEST_F(HostTest, ASilentUpdateTellsTheHostOfTwoStepsAndOfItsEnd) {
  CallbackHost host({"--name", "QVProClientCallback", "--answers", "incrementRemoteProgress",
                     "--answers", "postFinishedTask"},
                    Sandbox::kConsoleUserId);
  update();
  EXPECT_THAT(host.waitForMessages(3), ElementsAre("incrementRemoteProgress",
                                                   "incrementRemoteProgress", "postFinishedTask"));
}

TEST_F(HostTest, AHostThatNeverAnswersHoldsNoUpdateBack) {
  CallbackHost host({"--name", "QVVELMClientCallback", "--when-asked", "hang"},
                    Sandbox::kConsoleUserId);
  update();
  std::vector<std::string> reports = UpdateMachine::messagesOf(UpdateMachine::logPath());
  std::erase_if(reports, [](const std::string& line) { return !line.starts_with("Exception"); });
  EXPECT_THAT(reports,
              ElementsAre(StartsWith("Exception in +[QVTaskNotification postIncrementProgress]. "
                                     "NSPortTimeoutException - "),
                          StartsWith("Exception in +[QVTaskNotification postIncrementProgress]. "
                                     "NSPortTimeoutException - "),
                          StartsWith("Exception in +[QVTaskNotification postTaskFinished]. "
                                     "NSPortTimeoutException - ")));
}

}  // namespace
