#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/PropertyList.h"
#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"
#include "tests/support/ToolOutput.h"
#include "tests/support/WaitFor.h"
#include "tests/support/XServer.h"

// The built application is ended by a fatal signal; what its next starts make of that.
namespace {

using test::ChildProgram;
using test::outputOf;
using test::Sandbox;
using test::XServer;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
namespace fs = std::filesystem;

// A sanitizer handles the other fatal signals itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kFatal = SIGABRT;
#else
constexpr int kFatal = SIGSEGV;
#endif

constexpr char kReporterTitle[] = "Bug Reporter";
constexpr char kCrashed[] = " - Application crashed on last launch\n";

// The application in a bundle of its own, on a machine with anna at the console.
class CrashTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    if (!XServer::isAvailable()) GTEST_SKIP() << XServer::kNeeds;
    if (!test::hasTool("xclip")) GTEST_SKIP() << "needs xclip";
    sandbox.simulateMachine();
    sandbox.setConsoleUser(Sandbox::kConsoleUser);
    home = sandbox.homeOf(Sandbox::kConsoleUser);
    program = sandbox.path("QVUpdateHelper.app/Contents/Linux/QVUpdateHelper");
    fs::create_directories("/var/lib/quorvale/Library/Logs/Quorvale");
    fs::copy(QV_TEST_BUNDLE, sandbox.path("QVUpdateHelper.app"), fs::copy_options::recursive);
  }
  void openDisplay() { display.emplace(XServer::WindowManager::openbox); }
  void becomePerson() {
    sandbox.becomeUser(Sandbox::kConsoleUser);
    openDisplay();
  }

  // Where the application finds its reporter.
  void bringReporter() const {
    const std::string resources = sandbox.makeDirectory("QVUpdateHelper.app/Contents/Resources");
    fs::copy(QV_TEST_REPORTER, resources + "/Bug Reporter.app", fs::copy_options::recursive);
  }
  void disableReporter() const {
    const std::string folder = sandbox.makeDirectory("home/anna/Library/Preferences");
    ASSERT_TRUE(platform::property_list::write(folder + "/com.quorvale.global.plist",
                                               {{"disable-crash-reporter", true}},
                                               platform::property_list::Format::xml)
                    .ok());
  }

  // Starts a run that takes some seconds and sends it the signal in the middle.
  void crash() const {
    ChildProgram helper({program, "-source", sandbox.path("New.app"), "-destination",
                         sandbox.path("Old.app"), "-silent", "YES"});
    ASSERT_TRUE(test::waitFor([&] { return logs().find("Beginning installation") != npos; }));
    helper.signal(kFatal);
    const auto status = helper.waitForEnd();
    ASSERT_TRUE(status && WIFSIGNALED(*status));
    EXPECT_EQ(WTERMSIG(*status), kFatal);
  }
  // A whole run, which installs nothing and ends well.
  void start() const {
    ChildProgram helper({program, "-silent", "YES"});
    const auto status = helper.waitForEnd();
    ASSERT_TRUE(status && WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), 0);
  }

  // What stands in the application's logs, the superuser's or anna's.
  std::string logs() const {
    const std::string folder = ::getuid() == 0 ? "/var/lib/quorvale" : home;
    std::string text;
    for (const char* number : {"2", "1"}) {
      text += test::readFile(folder + "/Library/Logs/Quorvale/QVUpdateHelper." + number + ".log");
    }
    return text;
  }
  // The path of the one crash log.
  std::string crashLog() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(home + "/Library/Logs/DiagnosticReports")) {
      found.push_back(entry.path());
    }
    EXPECT_EQ(found.size(), 1U);
    return found.empty() ? "" : found.front();
  }
  // What the reporter's window shows, by way of its Copy button.
  std::string shownText() const {
    display->pressKey("alt+c");
    std::string text;
    test::waitFor([&] {
      text = outputOf("timeout 5 xclip -o -selection clipboard 2>/dev/null");
      return !text.empty();
    });
    return text;
  }
  bool reporterIsShown() const { return display->visibleWindow(kReporterTitle).has_value(); }
  void closeReporter() const {
    display->pressKey("Escape");
    EXPECT_TRUE(test::waitFor([&] { return !reporterIsShown(); }));
  }

  static constexpr std::size_t npos = std::string::npos;
  Sandbox sandbox;
  std::string home;
  std::string program;
  std::optional<XServer> display;
};

TEST_F(CrashTest, AFatalSignalLeavesALogOfTheApplicationInTheUsersReports) {
  becomePerson();
  crash();
  EXPECT_THAT(fs::path(crashLog()).filename(),
              MatchesRegex("Quorvale Update Helper_[-0-9]+_[^_]+\\.crash"));
  const std::string text = test::readFile(crashLog());
  EXPECT_THAT(text, HasSubstr("Identifier:      com.quorvale.UpdateHelper\nVersion:         "));
  EXPECT_THAT(text, HasSubstr(" (" + std::to_string(kFatal) + "), SI_USER (0)\n"));
  EXPECT_THAT(text, HasSubstr("QVUpdateHelper.app/Contents/Linux/QVUpdateHelper  "));
  EXPECT_THAT(text, HasSubstr("libc.so.6  "));
}

TEST_F(CrashTest, TheNextStartOpensTheReporterAndTheOneAfterDoesNot) {
  bringReporter();
  becomePerson();
  crash();
  start();
  EXPECT_THAT(logs(), HasSubstr(kCrashed));
  ASSERT_TRUE(display->waitForWindow(kReporterTitle));
  EXPECT_EQ(shownText(), test::readFile(crashLog()));
  closeReporter();
  start();
  start();
  EXPECT_THAT(logs(), Not(HasSubstr(kCrashed)));
  EXPECT_FALSE(reporterIsShown());
}

TEST_F(CrashTest, ASuperusersCrashIsShownToThePersonAtTheConsole) {
  bringReporter();
  openDisplay();
  crash();
  struct stat status {};
  ASSERT_EQ(::stat(crashLog().c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, Sandbox::kConsoleUserId);
  // The superuser's log begins anew at each start, so the line does not last.
  start();
  const auto window = display->waitForWindow(kReporterTitle);
  ASSERT_TRUE(window);
  EXPECT_EQ(shownText(), test::readFile(crashLog()));
  const std::string process = outputOf("xdotool getwindowpid " + *window);
  ASSERT_EQ(::stat(("/proc/" + process.substr(0, process.find('\n'))).c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, Sandbox::kConsoleUserId);
}

TEST_F(CrashTest, ASwitchedOffReporterStaysClosedAndTheLogSaysSo) {
  bringReporter();
  becomePerson();
  disableReporter();
  crash();
  start();
  EXPECT_THAT(logs(), HasSubstr(kCrashed));
  EXPECT_THAT(logs(), HasSubstr(" - Crash reporter disabled\n"));
  EXPECT_FALSE(reporterIsShown());
}

TEST_F(CrashTest, ARunThatEndsWellLeavesNeitherLogNorReport) {
  bringReporter();
  becomePerson();
  start();
  start();
  EXPECT_TRUE(fs::is_empty(home + "/Library/Logs/DiagnosticReports"));
  EXPECT_THAT(logs(), Not(HasSubstr(kCrashed)));
}

TEST_F(CrashTest, AfterARunThatEndedWellNoLogIsTakenForItsCrash) {
  bringReporter();
  becomePerson();
  start();
  sandbox.makeFile("home/anna/Library/Logs/DiagnosticReports/Quorvale Update Helper_1.crash");
  start();
  EXPECT_THAT(logs(), Not(HasSubstr(kCrashed)));
  EXPECT_FALSE(reporterIsShown());
}

TEST_F(CrashTest, ARunThatIsKilledLeavesNoLogAndNothingIsReported) {
  bringReporter();
  becomePerson();
  {
    // Ended by SIGKILL.
    const ChildProgram helper({program, "-source", "/New.app", "-destination", "/Old.app"});
    ASSERT_TRUE(test::waitFor([&] { return logs().find("Beginning installation") != npos; }));
  }
  start();
  EXPECT_THAT(logs(), Not(HasSubstr(kCrashed)));
  EXPECT_FALSE(reporterIsShown());
}

}  // namespace
