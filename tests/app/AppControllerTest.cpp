#include "app/AppController.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Shared/QVAuthorization.h"
#include "Shared/QVLog.h"
#include "platform/Application.h"
#include "platform/MainThread.h"
#include "platform/Privilege.h"
#include "platform/StatusWindow.h"
#include "platform/UserDefaults.h"
#include "tests/support/BesideMainLoop.h"
#include "tests/support/ImmutableFlag.h"
#include "tests/support/LogPreamble.h"
#include "tests/support/ThreadLimit.h"
#include "tests/support/UpdateMachine.h"
#include "tests/support/WaitFor.h"
#include "tests/support/WindowProgram.h"
#include "tests/support/XServer.h"

// The frame and the installation inside the test's own process, with pauses that pass quickly.
namespace {

using test::Sandbox;
using test::UpdateMachine;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class AppControllerTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    machine_.emplace();
  }

  UpdateMachine& machine() { return *machine_; }

  // Runs the application in this process to its end.
  void run(std::vector<std::string> arguments, platform::ApplicationDelegate& delegate) {
    arguments.insert(arguments.begin(), "QVUpdateHelper");
    std::vector<const char*> words;
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    EXPECT_EQ(platform::application::run(static_cast<int>(words.size()), words.data(), delegate),
              0);
  }

  // The same, and answers the messages of its log after the header.
  std::vector<std::string> messagesOfRun(const std::vector<std::string>& arguments) {
    run(arguments, controller_);
    return UpdateMachine::withoutHeader(
        UpdateMachine::messagesOf(UpdateMachine::logPath("AppControllerTest")));
  }

  std::vector<std::string> silently() {
    return {"-source", machine().source(), "-destination", machine().destination(), "-silent", "1"};
  }

  AppController controller_;

 private:
  std::optional<UpdateMachine> machine_;
};

TEST_F(AppControllerTest, EveryRunEndsTheApplication) {
  EXPECT_EQ(messagesOfRun({"-silent", "YES"}),
            test::logOfRun({.silent = true}, {"Invalid arguments", "Terminating self..."}));
}

TEST_F(AppControllerTest, APercentSignInAPathIsLoggedAsItStands) {
  EXPECT_THAT(messagesOfRun({"-source", "/tmp/100%@ %n.zip", "-silent", "YES"}),
              Contains("Source path: /tmp/100%@ %n.zip"));
}

TEST_F(AppControllerTest, AFailedTrashIsTriedWithRightsAndTheCopyGoesAheadWhateverCameOfIt) {
  machine().makeBundle(machine().source(), "2.0");
  machine().makeBundle(machine().destination(), "1.0");
  const test::ImmutableFlag locked(machine().destination());
  if (!locked.isSet())
    GTEST_SKIP() << "the file system of the scratch folder has no immutable flag";
  const std::vector<std::string> messages = messagesOfRun(silently());
  EXPECT_THAT(messages, testing::IsSupersetOf(
                            {"Trashing old application...", "Auth trashing old application...",
                             "Preparing to copy files...", "File copy successful."}));
  EXPECT_FALSE(std::filesystem::exists(machine().trashedBundle()));
}

TEST_F(AppControllerTest, WhatTheSuperuserFailsToTrashStaysAndIsOverwrittenWhereItIs) {
  machine().makeBundle(machine().source(), "2.0");
  machine().makeBundle(machine().destination(), "1.0");
  // A plain move there would do, but nothing can be noted about what is recycled.
  const Sandbox& sandbox = machine().sandbox();
  const std::string files = sandbox.makeDirectory("home/anna/.local/share/Trash/files");
  sandbox.makeFile("home/anna/.local/share/Trash/info");
  std::filesystem::create_directory_symlink(files, sandbox.path("home/anna/.Trash"));
  EXPECT_THAT(messagesOfRun(silently()), Contains("Auth trashing old application..."));
  EXPECT_TRUE(
      test::waitFor([this] { return UpdateMachine::versionOf(machine().destination()) == "2.0"; }));
  EXPECT_TRUE(std::filesystem::is_empty(files));
}

TEST_F(AppControllerTest, RightsThatTheProcessHasSetAsideAreTakenBackForTheCopy) {
  machine().makeBundle(machine().source(), "2.0");
  machine().sandbox().makeDirectory("Applications");
  ASSERT_EQ(::setresuid(Sandbox::kConsoleUserId, 0, 0), 0);
  run(silently(), controller_);
  EXPECT_EQ(::getuid(), 0U);
  EXPECT_TRUE(
      test::waitFor([this] { return UpdateMachine::versionOf(machine().destination()) == "2.0"; }));
}

TEST_F(AppControllerTest, WithNobodyAtTheConsoleTheOldBundleStaysWhereItIs) {
  machine().sandbox().setNobodyAtConsole();
  machine().makeBundle(machine().source(), "2.0");
  machine().makeBundle(machine().destination(), "1.0");
  testing::internal::CaptureStdout();
  run(silently(), controller_);
  // Nor is there a folder for the log, which says so instead.
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              testing::AllOf(HasSubstr("Unable to create folder (null).\n"),
                             HasSubstr("Unable to log the following information: "
                                       "Auth trashing old application...\n")));
  EXPECT_TRUE(std::filesystem::exists(machine().destination()));
}

// Without a thread for the time-out of the touch the platform raises its exception.
class DelegateThatForbidsThreads : public platform::ApplicationDelegate {
 public:
  explicit DelegateThatForbidsThreads(AppController& controller) : controller_(controller) {}

  void applicationDidFinishLaunching() override {
    controller_.applicationDidFinishLaunching();
    noThreads_.emplace();
    ASSERT_TRUE(noThreads_->isSet());
  }

 private:
  AppController& controller_;
  std::optional<test::ThreadLimit> noThreads_;
};

class AppControllerAsUserTest : public AppControllerTest {
 protected:
  void SetUp() override {
    AppControllerTest::SetUp();
    if (IsSkipped()) return;
    machine().makeBundle(machine().source(), "2.0");
    machine().sandbox().becomeUser(Sandbox::kConsoleUser);
  }

  std::string parentlessDestination() {
    return machine().sandbox().homeOf(Sandbox::kConsoleUser) + "/New folder/Sample.app";
  }

  std::string logOfUser() {
    QVLog::finishWriting();
    return test::readFile(machine().sandbox().homeOf(Sandbox::kConsoleUser) +
                          "/Library/Logs/Quorvale/AppControllerTest.1.log");
  }
};

TEST_F(AppControllerAsUserTest, AnExceptionWhileLaunchingLeavesTheApplicationOpenWithoutAWorker) {
  const std::vector<const char*> words = {"QVUpdateHelper", "-silent", "YES"};
  platform::user_defaults::setArguments(static_cast<int>(words.size()), words.data());
  QVLog::createNewLog();
  QVLog::finishWriting();
  const test::ThreadLimit noThreads;
  ASSERT_TRUE(noThreads.isSet());
  controller_.applicationDidFinishLaunching();
  EXPECT_THAT(logOfUser(),
              HasSubstr(" - Exception in -[AppController applicationDidFinishLaunching:]. "
                        "NSGenericException - Resource temporarily unavailable."));
  EXPECT_THAT(logOfUser(), Not(HasSubstr("Beginning installation...")));
}

TEST_F(AppControllerAsUserTest, AnExceptionInTheRunIsLoggedAndShownAndTheRunEndsAsEver) {
  DelegateThatForbidsThreads delegate(controller_);
  testing::internal::CaptureStderr();
  run({"-source", machine().source(), "-destination", parentlessDestination(), "-silent", "YES"},
      delegate);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::AllOf(HasSubstr("Error: unable to install update."),
                             HasSubstr("Exception in processData. NSGenericException - ")));
  EXPECT_THAT(logOfUser(),
              testing::AllOf(HasSubstr(" - Exception in -[AppController beginUpdate]. "),
                             HasSubstr(" - Terminating self...")));
}

// Has the rights, and raises what is no exception of the platform when a tool is to be run.
class RaisingSession : public platform::privilege::Session {
 public:
  platform::privilege::Outcome askForRights() override {
    return platform::privilege::Outcome::granted;
  }
  platform::privilege::Outcome obtainRights(const platform::privilege::Credentials&) override {
    return platform::privilege::Outcome::granted;
  }
  platform::privilege::Execution execute(const std::string&, const std::vector<std::string>&,
                                         platform::privilege::Output) override {
    throw std::runtime_error("of another kind");
  }
  int runInheriting(const std::string&, const std::vector<std::string>&) override { return -1; }
  void end() override {}
};

TEST_F(AppControllerAsUserTest, AnExceptionOfAnotherKindIsNotReportedAndTheRunEndsAsEver) {
  machine().sandbox().makeDirectory("home/anna/Applications");
  QVAuthorization::sharedController().setAuthRef(std::make_shared<RaisingSession>());
  testing::internal::CaptureStderr();
  run({"-source", machine().source(), "-destination",
       machine().sandbox().homeOf(Sandbox::kConsoleUser) + "/Applications/Sample.app", "-silent",
       "YES"},
      controller_);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(logOfUser(),
              testing::AllOf(HasSubstr(" - Terminating self...\n"), Not(HasSubstr("Exception"))));
}

TEST_F(AppControllerAsUserTest, ACopyThatFailsIsShownAlsoInASilentRunAndNothingElseIsDone) {
  machine().sandbox().makeDirectory("home/anna/Applications");
  testing::internal::CaptureStderr();
  run({"-source", machine().source(), "-destination",
       machine().sandbox().homeOf(Sandbox::kConsoleUser) + "/Applications/Sample.app", "-silent",
       "YES"},
      controller_);
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      testing::AllOf(HasSubstr("Unable to install"),
                     HasSubstr("The installer was unable to copy the file to its destination.")));
  EXPECT_THAT(
      logOfUser(),
      testing::AllOf(HasSubstr(" - The installer was unable to copy the file to its destination\n"),
                     Not(HasSubstr("File copy successful."))));
}

// The two calls by which the worker changes the window, on a real display.
class AppControllerWindowTest : public testing::Test {
 protected:
  static constexpr char kTitle[] = "Quorvale Software Update";

  void SetUp() override {
    if (!test::XServer::isAvailable()) GTEST_SKIP() << test::XServer::kNeeds;
    test::putPersonAtScreen(sandbox_);
    display_.emplace();
  }

  // Shows the window, has the main thread do `work`, and waits for what is to come of it.
  void showAnd(const std::function<void()>& work, const std::function<bool()>& expectation) {
    test::besideMainLoop([&] {
      const auto onMain = [](const std::function<void()>& task) {
        platform::main_thread::perform(task, platform::main_thread::Wait::untilDone);
      };
      onMain(platform::status_window::makeKeyAndOrderFront);
      EXPECT_TRUE(display_->waitForWindow(kTitle));
      ASSERT_TRUE(test::waitFor([this] { return standsStill(); }));
      onMain(work);
      EXPECT_TRUE(test::waitFor(expectation));
    });
  }

  bool standsStill() {
    std::string now = display_->pixels();
    std::swap(now, before_);
    return now == before_;
  }

  AppController controller_;
  std::string before_;
  Sandbox sandbox_;
  std::optional<test::XServer> display_;
};

TEST_F(AppControllerWindowTest, HidesTheWindow) {
  showAnd([this] { controller_.hideMainWindow(); },
          [this] { return !display_->visibleWindow(kTitle); });
}

TEST_F(AppControllerWindowTest, ReplacesTheStatusLine) {
  showAnd([this] { controller_.updateStatusText("Relaunching..."); },
          [this] { return display_->pixels() != before_; });
}

}  // namespace
