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

  void update(const std::string& silent = "YES") {
    EXPECT_EQ(machine_->run({"-source", machine_->source(), "-destination", machine_->destination(),
                             "-silent", silent}),
              0);
    EXPECT_TRUE(test::waitFor(
        [this] { return UpdateMachine::versionOf(machine_->destination()) == "2.0"; }));
  }

  // What the run has logged from that line on.
  std::vector<std::string> messagesFrom(const std::string& first) {
    std::vector<std::string> messages = machine_->messages();
    messages.erase(messages.begin(), std::ranges::find(messages, first));
    return messages;
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
  const auto isLate = [](const std::string& method) {
    return StartsWith("Exception in +[QVTaskNotification " + method +
                      "]. NSPortTimeoutException - ");
  };
  // The reports stand where the host was asked.
  EXPECT_THAT(
      messagesFrom("Trashing old application..."),
      ElementsAre("Trashing old application...", "Preparing to copy files...",
                  isLate("postIncrementProgress"), isLate("postIncrementProgress"),
                  "File copy successful.", isLate("postTaskFinished"), "Terminating self..."));
}

TEST_F(HostTest, AnUpdateThatIsNotSilentAsksNoHost) {
  CallbackHost host({"--name", "QVVELMClientCallback", "--when-asked", "hang"},
                    Sandbox::kConsoleUserId);
  update("NO");
  EXPECT_THAT(messagesFrom("Trashing old application..."),
              ElementsAre("Trashing old application...", "Preparing to copy files...",
                          "File copy successful.", "Launching app...", "Terminating self..."));
}

}  // namespace
