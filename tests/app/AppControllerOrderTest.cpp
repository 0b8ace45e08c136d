#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Shared/QVAuthorization.h"
#include "Shared/QVBugReporter.h"
#include "Shared/QVFileManager.h"
#include "Shared/QVLog.h"
#include "Shared/QVTaskEx.h"
#include "Shared/QVTaskNotification.h"
#include "app/AppController.h"
#include "platform/Alert.h"
#include "platform/Application.h"
#include "platform/Exception.h"
#include "platform/MainThread.h"
#include "platform/StatusWindow.h"
#include "platform/Workspace.h"
#include "tests/support/Notes.h"
#include "tests/support/QuickClock.h"
#include "tests/support/UpdateMachine.h"

// In which order a run does what it does, on which thread, and what the log's last line is by then.
// Everything around the run is replaced by a stand-in that notes its call.
namespace {

using test::Sandbox;
using test::UpdateMachine;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

// Whether the ordinary move to the Trash succeeds, and why the first program raises, if it does.
std::atomic<bool> recycles = true;
std::atomic<const char*> whyItRaises = nullptr;

std::string lastLogLine() {
  QVLog::finishWriting();
  const auto lines = UpdateMachine::messagesOf(UpdateMachine::logPath("AppControllerOrderTest"));
  return lines.empty() ? "nothing" : lines.back();
}

void note(const std::string& what) {
  const std::string thread = platform::main_thread::isCurrent() ? "main: " : "worker: ";
  test::note(thread + what + " after " + lastLogLine());
}

void notePause(const char* how, double seconds) {
  note(std::string(how) + " " + std::to_string(static_cast<int>(seconds)) + " s");
}

std::string commandLine(const std::optional<std::string>& path,
                        const std::optional<QVTaskEx::Arguments>& arguments) {
  std::string line = path.value_or("nothing");
  for (const std::string& word : arguments.value()) line += " [" + word + "]";
  return line;
}

}  // namespace

void QVBugReporter::startBugReporter() {
  note("crash check");
}
void QVBugReporter::stopBugReporter() {
  note("clean exit");
}

void QVTaskNotification::postIncrementProgress() {
  note("increment");
}
void QVTaskNotification::postTaskFinished() {
  note("finished");
}

bool QVTaskEx::runTask(const std::optional<std::string>& path,
                       const std::optional<Arguments>& arguments) {
  if (whyItRaises != nullptr) throw platform::Exception("NSTestException", whyItRaises.load());
  note("runs " + commandLine(path, arguments));
  return true;
}
void QVTaskEx::runTask(const std::optional<std::string>& path,
                       const std::optional<Arguments>& arguments, Seconds timeout) {
  note("runs " + commandLine(path, arguments) + " for " +
       std::to_string(static_cast<int>(timeout.count())) + " s");
}

QVAuthorization& QVAuthorization::sharedController(bool) {
  static QVAuthorization instance;
  return instance;
}
bool QVAuthorization::authTrashFile(const Path&, bool deleteOnRootAccount) {
  note(std::string(deleteOnRootAccount ? "deletes or " : "") + "trashes as user " +
       std::to_string(::getuid()));
  return true;
}
bool QVAuthorization::authCopyFile(const Path&, const Path& folder) {
  note("copies into " + std::filesystem::path(folder.value()).filename().string() + " as user " +
       std::to_string(::getuid()));
  return true;
}

bool QVFileManager::registerApplicationWithLaunchServices(const std::string&) {
  note("registers");
  return true;
}
bool QVFileManager::touchFile(const std::optional<std::string>&) {
  note("touches");
  return true;
}

namespace platform {
namespace workspace {
bool recycle(const std::string&, const std::string&, const std::vector<std::string>& names) {
  note("recycles " + names.at(0));
  return recycles;
}
bool open(const std::string&) {
  note("opens");
  return true;
}
}  // namespace workspace

namespace alert {
void run(std::string_view title, std::string_view messageFormat) {
  note("alert " + std::string(title) + " " + std::string(messageFormat));
}
}  // namespace alert

namespace status_window {
void makeKeyAndOrderFront() {
  note("window shown");
}
void activateApplication() {
  note("application activated");
}
void startAnimation() {
  note("animation started");
}
void setStatusText(std::string_view text) {
  note("status " + std::string(text));
}
void orderOut() {
  note("window hidden");
}
}  // namespace status_window
}  // namespace platform

namespace {

class AppControllerOrderTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    machine_.emplace();
    machine_->makeBundle(machine_->source(), "2.0");
    machine_->makeBundle(machine_->destination(), "1.0");
    test::observePauses(notePause);
  }

  // Everything that is noted of a run, from the launch to the end.
  std::vector<std::string> notesOfRun(const char* silent) {
    const std::string source = machine_->source();
    const std::string destination = machine_->destination();
    const char* const words[] = {"QVUpdateHelper", "-source",           source.c_str(),
                                 "-destination",   destination.c_str(), "-mountpath",
                                 "/Volumes/A",     "-silent",           silent};
    AppController controller;
    EXPECT_EQ(platform::application::run(std::size(words), words, controller), 0);
    return test::notes();
  }

 private:
  std::optional<UpdateMachine> machine_;
};

TEST_F(AppControllerOrderTest, ARunWithAWindowGoesStepByStep) {
  recycles = false;
  EXPECT_THAT(
      notesOfRun("NO"),
      ElementsAre(
          "main: crash check after nothing", "main: window shown after Running in 64-bit mode",
          "main: application activated after Running in 64-bit mode",
          "main: animation started after Running in 64-bit mode",
          "worker: spins 3 s after Waiting for software updater to close naturally...",
          "worker: runs /usr/bin/killall [Quorvale Software Update] after "
          "Killing software updater instances...",
          "worker: runs /usr/bin/killall [Quorvale Software Updater] after "
          "Killing software updater instances...",
          "worker: recycles Sample.app after Trashing old application...",
          "worker: deletes or trashes as user 0 after Auth trashing old application...",
          "worker: spins 2 s after Auth trashing old application...",
          "worker: copies into Applications as user 0 after Preparing to copy files...",
          "worker: spins 2 s after Preparing to copy files...",
          "worker: sleeps 1 s after Preparing to copy files...",
          "worker: registers after Preparing to copy files...",
          "worker: touches after Preparing to copy files...",
          "main: status Relaunching... after Preparing to copy files...",
          "worker: opens after Launching app...", "main: window hidden after Launching app...",
          "worker: runs /usr/bin/hdiutil [detach] [/Volumes/A] [-force] for 5 s after "
          "Cleaning up...",
          "main: clean exit after Terminating self..."));
}

TEST_F(AppControllerOrderTest, ASilentRunTellsTheHostStepByStep) {
  EXPECT_THAT(
      notesOfRun("YES"),
      ElementsAre("main: crash check after nothing",
                  "worker: spins 3 s after Waiting for software updater to close naturally...",
                  "worker: runs /usr/bin/killall [Quorvale Software Update] after "
                  "Killing software updater instances...",
                  "worker: runs /usr/bin/killall [Quorvale Software Updater] after "
                  "Killing software updater instances...",
                  "worker: recycles Sample.app after Trashing old application...",
                  "worker: increment after Preparing to copy files...",
                  "worker: copies into Applications as user 0 after Preparing to copy files...",
                  "worker: spins 2 s after Preparing to copy files...",
                  "worker: increment after Preparing to copy files...",
                  "worker: sleeps 1 s after Preparing to copy files...",
                  "worker: registers after Preparing to copy files...",
                  "worker: touches after Preparing to copy files...",
                  "worker: runs /usr/bin/hdiutil [detach] [/Volumes/A] [-force] for 5 s after "
                  "Cleaning up...",
                  "main: finished after Cleaning up...", "worker: sleeps 1 s after Cleaning up...",
                  "main: clean exit after Terminating self..."));
}

TEST_F(AppControllerOrderTest, RightsThatWereSetAsideAreTakenBackBeforeTheTrashIsTriedWithThem) {
  recycles = false;
  ASSERT_EQ(::setresuid(Sandbox::kConsoleUserId, 0, 0), 0);
  EXPECT_THAT(notesOfRun("YES"), Contains(HasSubstr("trashes as user 0 ")));
}

TEST_F(AppControllerOrderTest, RightsThatWereSetAsideAreTakenBackBeforeTheCopyIsTriedWithThem) {
  ASSERT_EQ(::setresuid(Sandbox::kConsoleUserId, 0, 0), 0);
  EXPECT_THAT(notesOfRun("YES"), Contains(HasSubstr("copies into Applications as user 0 ")));
}

TEST_F(AppControllerOrderTest, AnExceptionsTextIsTheAlertsFormatAsItStands) {
  whyItRaises = "100%% of %i";
  EXPECT_THAT(notesOfRun("YES"),
              Contains(HasSubstr("worker: alert Error: unable to install update. Exception in "
                                 "processData. NSTestException - 100%% of %i after ")));
}

}  // namespace
