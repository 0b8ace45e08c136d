#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/ApplicationBundle.h"
#include "tests/support/LoginManager.h"
#include "tests/support/ProcessState.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"
#include "tests/support/XServer.h"

// What would end an update halfway: a session or a terminal that closes, a machine that is shut
// down or falls asleep, a limit on the size of files.
namespace {

using Behaviour = test::LoginManager::Behaviour;
using test::Sandbox;
using test::UpdateMachine;
using test::waitFor;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// The children of a process that have ended and were not collected.
std::vector<std::string> zombiesOf(int pid) {
  std::vector<std::string> zombies;
  for (const auto& task :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    std::istringstream children(test::readFile(task.path() / "children"));
    for (std::string child; children >> child;) {
      if (!test::isRunning(std::stoi(child))) zombies.push_back(child);
    }
  }
  return zombies;
}

constexpr char kWindowTitle[] = "Quorvale Software Update";

class InterruptionTest : public testing::TestWithParam<Behaviour> {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  }

  UpdateMachine& machineWith(UpdateMachine::Pauses pauses) {
    UpdateMachine& machine = machine_.emplace(pauses);
    machine.makeBundle(machine.destination(), "1.0");
    machine.makeBundle(machine.source(), "2.0");
    return machine;
  }

  std::vector<std::string> arguments(const std::string& silent = "YES") {
    return {"-source", machine_->source(), "-destination", machine_->destination(), "-silent",
            silent};
  }

  bool waitForMessage(const std::string& message) {
    return waitFor([&] {
      return test::readFile(machine_->log()).find(" - " + message + "\n") != std::string::npos;
    });
  }

  // Without rights and with nobody to ask for them the copy fails. A silent run shows no window but
  // its alert.
  void startRunThatEndsInAnAlert() {
    machine_->runAs(Sandbox::kConsoleUser);
    machine_->start(arguments("YES"));
  }

  void sendRequestsToEnd() {
    for (const int request : {SIGHUP, SIGINT, SIGTERM}) ::kill(machine_->pid(), request);
  }

  void expectUpdated() {
    EXPECT_THAT(machine_->messages(), Contains("File copy successful."));
    EXPECT_TRUE(
        waitFor([&] { return UpdateMachine::versionOf(machine_->destination()) == "2.0"; }));
    EXPECT_EQ(UpdateMachine::versionOf(machine_->trashedBundle()), "1.0");
  }

 private:
  std::optional<UpdateMachine> machine_;
};

TEST_F(InterruptionTest, AnUpdateOutlastsItsSession) {
  UpdateMachine& machine = machineWith(UpdateMachine::Pauses::real);
  machine.start(arguments());
  ASSERT_TRUE(waitForMessage("Beginning installation..."));
  sendRequestsToEnd();
  ASSERT_TRUE(waitForMessage("Preparing to copy files..."));
  sendRequestsToEnd();
  EXPECT_EQ(machine.waitForEnd(), 0);
  expectUpdated();
}

TEST_F(InterruptionTest, TheMachineIsKeptAwakeFromTheTrashToTheEndOfTheUpdate) {
  UpdateMachine& machine = machineWith(UpdateMachine::Pauses::real);
  test::LoginManager manager(machine.sandbox(), Behaviour::grants);
  machine.start(arguments());
  ASSERT_TRUE(waitForMessage("Waiting for software updater to close naturally..."));
  EXPECT_FALSE(manager.isHeld());
  ASSERT_TRUE(waitForMessage("Preparing to copy files..."));
  EXPECT_TRUE(manager.isHeld());
  EXPECT_EQ(machine.waitForEnd(), 0);
  EXPECT_TRUE(waitFor([&] { return manager.released() == 1; }));
  EXPECT_THAT(manager.requests(),
              ElementsAre("shutdown:sleep|Quorvale Update Helper|An application is being "
                          "updated.|block"));
  expectUpdated();
}

TEST_F(InterruptionTest, AnUpdateWithoutASourceAsksNobodyToStayAwake) {
  UpdateMachine& machine = machineWith(UpdateMachine::Pauses::quick);
  test::LoginManager manager(machine.sandbox(), Behaviour::grants);
  std::filesystem::remove_all(machine.source());
  EXPECT_EQ(machine.run(arguments()), 0);
  EXPECT_TRUE(manager.requests().empty());
}

TEST_F(InterruptionTest, AnAlertThatWaitsForSomebodyLetsTheMachineSleep) {
  if (!test::XServer::isAvailable()) GTEST_SKIP() << test::XServer::kNeeds;
  UpdateMachine& machine = machineWith(UpdateMachine::Pauses::quick);
  test::LoginManager manager(machine.sandbox(), Behaviour::grants);
  const test::XServer display(test::XServer::WindowManager::openbox);
  startRunThatEndsInAnAlert();
  ASSERT_TRUE(display.waitForWindow(kWindowTitle));
  EXPECT_TRUE(waitFor([&] { return manager.released() == 1; }));
  EXPECT_THAT(zombiesOf(machine.pid()), testing::IsEmpty());
  EXPECT_TRUE(waitFor([&] {
    display.pressKey("Return");
    return !test::isRunning(machine.pid());
  }));
  EXPECT_EQ(machine.waitForEnd(), 0);
  EXPECT_THAT(machine.messages(), Contains("Terminating self..."));
}

TEST_F(InterruptionTest, ARequestToEndEndsARunOfWhichOnlyAnAlertIsLeft) {
  if (!test::XServer::isAvailable()) GTEST_SKIP() << test::XServer::kNeeds;
  UpdateMachine& machine = machineWith(UpdateMachine::Pauses::quick);
  const test::XServer display(test::XServer::WindowManager::openbox);
  startRunThatEndsInAnAlert();
  ASSERT_TRUE(display.waitForWindow(kWindowTitle));
  ::kill(machine.pid(), SIGTERM);
  EXPECT_EQ(machine.waitForEnd(), 128 + SIGTERM);
  EXPECT_TRUE(waitFor([&] { return !display.visibleWindow(kWindowTitle); }));
}

TEST_F(InterruptionTest, TheEndOfARunWhoseAlertWasDismissedOutlastsItsSession) {
  if (!test::XServer::isAvailable()) GTEST_SKIP() << test::XServer::kNeeds;
  UpdateMachine& machine = machineWith(UpdateMachine::Pauses::quick);
  const test::XServer display(test::XServer::WindowManager::openbox);
  startRunThatEndsInAnAlert();
  ASSERT_TRUE(display.waitForWindow(kWindowTitle));
  EXPECT_FALSE(test::ignores(machine.pid(), SIGTERM));
  display.pressKey("Return");
  // A second passes between this alert and the end.
  ASSERT_TRUE(waitFor([&] { return test::ignores(machine.pid(), SIGTERM); }));
  sendRequestsToEnd();
  EXPECT_EQ(machine.waitForEnd(), 0);
  EXPECT_THAT(machine.messages(), Contains("Terminating self..."));
}

// Everything but a login manager that agrees.
TEST_P(InterruptionTest, AnUpdateDoesNotNeedALoginManager) {
  UpdateMachine& machine = machineWith(UpdateMachine::Pauses::quick);
  const test::LoginManager manager(machine.sandbox(), GetParam());
  EXPECT_EQ(machine.run(arguments()), 0);
  expectUpdated();
}

std::string nameOf(const testing::TestParamInfo<Behaviour>& behaviour) {
  constexpr const char* kNames[] = {"Grants", "GrantsOnlyDelays", "Refuses",
                                    "Hangs",  "AnswersNonsense",  "IsAbsent"};
  return kNames[static_cast<std::size_t>(behaviour.param)];
}

INSTANTIATE_TEST_SUITE_P(LoginManager, InterruptionTest,
                         testing::Values(Behaviour::grantsOnlyDelays, Behaviour::refuses,
                                         Behaviour::hangs, Behaviour::answersNonsense,
                                         Behaviour::absent),
                         nameOf);

TEST_F(InterruptionTest, TheReopenedApplicationHearsEverySignal) {
  UpdateMachine& machine = machineWith(UpdateMachine::Pauses::quick);
  const std::string bundle = test::makeApplication(machine.sandbox(), "New/Sample.app");
  std::vector<std::string> words = arguments("NO");
  words[1] = bundle;
  EXPECT_EQ(machine.run(words), 0);
  const std::string record = machine.sandbox().homeOf(Sandbox::kConsoleUser) + "/opened";
  ASSERT_TRUE(waitFor([&] { return std::filesystem::exists(record); }));
  EXPECT_THAT(test::readFile(record), Not(HasSubstr("signal")));
}

TEST_F(InterruptionTest, ALimitOnTheSizeOfFilesKillsNothingAndLosesNothing) {
  UpdateMachine& machine = machineWith(UpdateMachine::Pauses::quick);
  machine.runBy({"/bin/sh", "-c", "ulimit -f 1; exec \"$@\"", "sh"});
  EXPECT_EQ(machine.run(arguments()), 0);
  EXPECT_EQ(UpdateMachine::versionOf(machine.trashedBundle()), "1.0");
}

}  // namespace
