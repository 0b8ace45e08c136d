#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "Shared/QVBugReporter.h"
#include "platform/Bundle.h"
#include "platform/ProcessInfo.h"
#include "platform/PropertyList.h"
#include "platform/Workspace.h"
#include "tests/support/ApplicationBundle.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

using test::Sandbox;
using testing::HasSubstr;
namespace fs = std::filesystem;
namespace property_list = platform::property_list;

constexpr char kReporter[] =
    "<key>CFBundleIdentifier</key><string>com.quorvale.BugReporter</string>";
constexpr char kSample[] =
    "<key>CFBundleName</key><string>Sample</string>"
    "<key>CFBundleIdentifier</key><string>com.example.Sample</string>";

// A reporter that is really started, for anna.
class QVBugReporterOpeningTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
    sandbox.setConsoleUser(Sandbox::kConsoleUser);
    log = sandbox.makeFile("home/anna/Library/Logs/DiagnosticReports/Sample_1_host.crash");
  }
  // The record of a run that began an hour ago and did not end.
  void recordLaunch(const std::string& relative) const {
    const PropertyList::Dictionary record = {
        {"launch", std::chrono::system_clock::now() - std::chrono::hours(1)}};
    sandbox.makeFile(relative, property_list::serialized(record, property_list::Format::binary));
  }
  std::string reportOfReporter() const {
    const std::string file = sandbox.homeOf(Sandbox::kConsoleUser) + "/opened";
    test::waitFor([&] { return fs::exists(file); });
    return test::readFile(file);
  }
  using PropertyList = platform::PropertyList;
  Sandbox sandbox;
  std::string log;
};

TEST_F(QVBugReporterOpeningTest, TheInstalledReporterIsStartedWithTheLog) {
  const std::string reporter = test::makeApplication(sandbox, "Apps/Reporter.app", kReporter);
  recordLaunch("record.plist");
  sandbox.becomeUser(Sandbox::kConsoleUser);
  ASSERT_TRUE(platform::workspace::registerApplication(reporter));
  EXPECT_EQ(QVBugReporter::checkForCrashes("Sample", sandbox.path("record.plist")), log);
  EXPECT_THAT(reportOfReporter(), HasSubstr("argument " + log + "\n"));
}

TEST_F(QVBugReporterOpeningTest, TheSuperuserStartsItAsTheConsoleUser) {
  const std::string reporter = test::makeApplication(sandbox, "Apps/Reporter.app", kReporter);
  recordLaunch("record.plist");
  ASSERT_TRUE(platform::workspace::registerApplication(reporter));
  EXPECT_EQ(QVBugReporter::checkForCrashes("Sample", sandbox.path("record.plist")), log);
  const std::string report = reportOfReporter();
  EXPECT_THAT(report, HasSubstr("argument " + log + "\n"));
  EXPECT_THAT(report, HasSubstr("users 61001 61001 61001\n"));
}

// The application is this program, copied into a bundle that brings its reporter.
TEST_F(QVBugReporterOpeningTest, TheBundledReporterIsStartedByNameAndRecordOfTheBundle) {
  const std::string programs = "Apps/Sample.app/Contents/Linux/";
  test::makeApplication(sandbox, "Apps/Sample.app", kSample);
  test::makeApplication(sandbox, "Apps/Sample.app/Contents/Resources/Bug Reporter.app");
  fs::copy_file(platform::process_info::executablePath(), sandbox.path(programs + "Program"),
                fs::copy_options::overwrite_existing);
  fs::copy_file(*platform::Bundle::main().auxiliaryPath("session-helper"),
                sandbox.path(programs + "session-helper"));
  recordLaunch("home/anna/Library/Preferences/com.example.Sample.plist");
  ASSERT_EQ(std::system(("chown -R anna '" + sandbox.homeOf("anna") + "'").c_str()), 0);
  sandbox.becomeUser(Sandbox::kConsoleUser);
  const std::string command = "'" + sandbox.path(programs + "Program") +
                              "' --gtest_also_run_disabled_tests --gtest_filter=*StartsAndStops";
  EXPECT_EQ(std::system((command + " >/dev/null").c_str()), 0);
  EXPECT_THAT(reportOfReporter(), HasSubstr("argument " + log + "\n"));
  const auto record =
      property_list::read(sandbox.home() + "/Library/Preferences/com.example.Sample.plist");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->count("exit"), 1U);
}

// Run by the test above as a program of its own.
TEST(QVBugReporterOpeningChild, DISABLED_StartsAndStops) {
  QVBugReporter::startBugReporter();
  QVBugReporter::stopBugReporter();
}

}  // namespace
