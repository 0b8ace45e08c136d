#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/LogPreamble.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"
#include "tests/support/XServer.h"

// Whole updates by the built application as it is shipped, as superuser with a person at the
// console: how long its pauses are, what it ends and what it opens.
namespace {

using std::chrono::steady_clock;
using test::Sandbox;
using test::UpdateMachine;
using testing::HasSubstr;
using testing::MatchesRegex;

class UpdateTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    machine_.emplace();
  }

  UpdateMachine& machine() { return *machine_; }

  std::vector<std::string> pathArguments() {
    return {"-source", machine().source(), "-destination", machine().destination()};
  }
  std::vector<std::string> pathArguments(const std::string& silent) {
    std::vector<std::string> arguments = pathArguments();
    arguments.insert(arguments.end(), {"-mountpath", machine().mountPoint(), "-silent", silent});
    return arguments;
  }

  // The whole log of a run whose paths are valid: what each has in common, then `rest`.
  std::vector<std::string> validRun(const std::string& silent,
                                    const std::vector<std::string>& rest) {
    return test::logOfValidRun({.source = machine().source(),
                                .destination = machine().destination(),
                                .mountPath = machine().mountPoint(),
                                .silent = silent == "1"},
                               rest);
  }

  std::vector<std::string> messages() { return machine().messages(); }

 private:
  std::optional<UpdateMachine> machine_;
};

TEST_F(UpdateTest, WithoutArgumentsTheRunLogsThemAsAbsentAndEndsWithoutAnAlert) {
  EXPECT_EQ(machine().run({}), 0);
  EXPECT_EQ(messages(), test::logOfRun({}, {"Invalid arguments", "Terminating self..."}));
  EXPECT_THAT(machine().output(), testing::Not(HasSubstr("Alert: ")));
}

TEST_F(UpdateTest, TheLogBeginsWithItsHeader) {
  EXPECT_EQ(machine().run({}), 0);
  const std::vector<std::string> log = UpdateMachine::messagesOf(UpdateMachine::logPath());
  ASSERT_GE(log.size(), 5U);
  EXPECT_THAT(log[0], MatchesRegex("Log started: [0-9-]+ [0-9:]+ [+-][0-9]+"));
  EXPECT_THAT(log[1], MatchesRegex("Version: [0-9.]+"));
  EXPECT_EQ(log[2], "Path: " QV_TEST_BUNDLE "/Contents/Linux/QVUpdateHelper");
  EXPECT_THAT(log[3],
              MatchesRegex("System: OS X .+, [0-9]+ CPU\\(s\\), [0-9]+\\.[0-9][0-9] GB RAM"));
  EXPECT_EQ(log[4], "Running in 64-bit mode");
}

TEST_F(UpdateTest, WrongArgumentsInASilentRunShowNoAlertAndPauseOneSecond) {
  const auto begin = steady_clock::now();
  EXPECT_EQ(machine().run({"-source", "/x/A.app", "-destination", "/y/A.APP", "-silent", "YES"}),
            0);
  EXPECT_GE(steady_clock::now() - begin, std::chrono::seconds(1));
  EXPECT_EQ(messages(),
            test::logOfRun({.source = "/x/A.app", .destination = "/y/A.APP", .silent = true},
                           {"Invalid arguments", "Terminating self..."}));
  EXPECT_THAT(machine().output(), testing::Not(HasSubstr("Alert: ")));
}

TEST_F(UpdateTest, AMissingSourceIsShownInAnAlertThatThePersonDismisses) {
  if (!test::XServer::isAvailable()) GTEST_SKIP() << test::XServer::kNeeds;
  const test::XServer display(test::XServer::WindowManager::openbox);
  machine().start(pathArguments("NO"));
  ASSERT_TRUE(test::waitFor([] {
    return test::readFile(UpdateMachine::logPath()).find("Source file does not exist") !=
           std::string::npos;
  }));
  ASSERT_TRUE(display.waitForWindow("Quorvale Software Update"));
  EXPECT_TRUE(test::isRunning(machine().pid()));
  EXPECT_TRUE(test::waitFor([&] {
    display.pressKey("Return");
    return !test::isRunning(machine().pid());
  }));
  EXPECT_EQ(machine().waitForEnd(), 0);
  EXPECT_EQ(messages(), validRun("0", {"Source file does not exist", "Terminating self..."}));
}

TEST_F(UpdateTest, ASilentUpdateReplacesTheBundleKillsTheUpdaterAndDetachesTheImage) {
  machine().makeBundle(machine().destination(), "1.0");
  machine().attachDiskImage();
  const int updater = machine().startUpdater("Quorvale Software Update");
  const int otherUpdater = machine().startUpdater("Quorvale Software Updater");
  const auto begin = steady_clock::now();
  EXPECT_EQ(machine().run(pathArguments("YES")), 0);
  const auto length = steady_clock::now() - begin;

  // Three for the updater, two after the copy, one before the registration, one at the end.
  EXPECT_GE(length, std::chrono::seconds(7));
  EXPECT_LT(length, std::chrono::seconds(15));
  EXPECT_EQ(messages(),
            validRun("1", {"Trashing old application...", "Preparing to copy files...",
                           "File copy successful.", "Cleaning up...", "Terminating self..."}));
  EXPECT_EQ(UpdateMachine::versionOf(machine().destination()), "2.0");
  EXPECT_EQ(UpdateMachine::versionOf(machine().trashedBundle()), "1.0");
  EXPECT_FALSE(test::isRunning(updater));
  EXPECT_FALSE(test::isRunning(otherUpdater));
  EXPECT_FALSE(machine().diskImageIsAttached());
  EXPECT_FALSE(std::filesystem::exists(machine().launchRecord()));
}

TEST_F(UpdateTest, AnUpdateThatIsNotSilentReopensTheApplicationAsThePersonAtTheConsole) {
  machine().makeBundle(machine().destination(), "1.0");
  machine().attachDiskImage();
  EXPECT_EQ(machine().run(pathArguments("NO")), 0);

  EXPECT_EQ(messages(), validRun("0", {"Trashing old application...", "Preparing to copy files...",
                                       "File copy successful.", "Launching app...",
                                       "Cleaning up...", "Terminating self..."}));
  ASSERT_TRUE(test::waitFor([&] { return std::filesystem::exists(machine().launchRecord()); }));
  const std::string id = std::to_string(Sandbox::kConsoleUserId);
  EXPECT_THAT(test::readFile(machine().launchRecord()),
              testing::AllOf(
                  HasSubstr("users " + id + " " + id + " " + id + "\n"),
                  HasSubstr("\ngroups " + id + " " + id + " " + id + "\n"),
                  HasSubstr("\nsession leader 1\n"),
                  HasSubstr("\nfolder " + machine().sandbox().homeOf(Sandbox::kConsoleUser) + "\n"),
                  HasSubstr("\ndescriptor 0 /dev/null\ndescriptor 1 /dev/null\n"
                            "descriptor 2 /dev/null\nprogram ")));
  EXPECT_FALSE(machine().diskImageIsAttached());
}

TEST_F(UpdateTest, ATrashWithRightsAddsAPauseOfTwoSeconds) {
  machine().makeBundle(machine().source(), "2.0");
  machine().makeBundle(machine().destination(), "1.0");
  machine().sandbox().makeFile("home/anna/.Trash", "no folder");
  const auto begin = steady_clock::now();
  EXPECT_EQ(machine().run(pathArguments()), 0);
  EXPECT_GE(steady_clock::now() - begin, std::chrono::seconds(8));
  EXPECT_THAT(messages(), testing::Contains("Auth trashing old application..."));
}

}  // namespace
