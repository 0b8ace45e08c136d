#include "Shared/QVBugReporter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "Shared/QVLog.h"
#include "platform/MainThread.h"
#include "platform/PropertyList.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"
#include "tests/support/Sandbox.h"

namespace {

std::vector<std::string> opened;

}  // namespace

// In place of the desktop's own: a test sees what would be opened.
namespace platform::workspace {

bool openWithApplication(const std::string& path, const std::string& bundlePath) {
  opened.push_back(path + " with " + bundlePath);
  return true;
}

bool openWithBundleIdentifier(const std::string& path, const std::string& identifier) {
  opened.push_back(path + " by " + identifier);
  return true;
}

}  // namespace platform::workspace

namespace {

using namespace std::chrono_literals;
using platform::PropertyList;
using Date = PropertyList::Date;
using test::Sandbox;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;
namespace fs = std::filesystem;
namespace property_list = platform::property_list;
namespace main_thread = platform::main_thread;

const Date kLaunch = std::chrono::sys_days(std::chrono::year(2026) / 11 / 20);

fs::file_time_type fileTime(Date date) {
  return fs::file_time_type::clock::from_sys(date);
}

// The application "Sample", run by anna, with a record file of its own.
class QVBugReporterTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
    localLogs = "/var/lib/quorvale/Library/Logs";
    fs::create_directories(localLogs);
    fs::permissions(localLogs, fs::perms::all);
    sandbox.becomeUser(Sandbox::kConsoleUser);
    userLogs = sandbox.home() + "/Library/Logs";
    record = sandbox.home() + "/record.plist";
  }

  void setRecord(const PropertyList::Dictionary& contents) const {
    ASSERT_TRUE(property_list::write(record, contents, property_list::Format::binary).ok());
  }
  void setPreference(const PropertyList& value) const {
    fs::create_directories(sandbox.home() + "/Library/Preferences");
    ASSERT_TRUE(
        property_list::write(sandbox.home() + "/Library/Preferences/com.quorvale.global.plist",
                             {{"disable-crash-reporter", value}}, property_list::Format::xml)
            .ok());
  }
  std::string makeLog(const std::string& folder, const std::string& name, Date date) const {
    fs::create_directories(folder);
    const std::string path = folder + "/" + name;
    std::fclose(std::fopen(path.c_str(), "w"));
    fs::last_write_time(path, fileTime(date));
    return path;
  }
  std::optional<std::string> check(const std::string& name = "Sample") const {
    return QVBugReporter::checkForCrashes(name, record);
  }
  std::string logText() const {
    QVLog::finishWriting();
    return test::readFile(userLogs + "/Quorvale/QVBugReporterTest.1.log");
  }

  Sandbox sandbox;
  std::string userLogs;
  std::string localLogs;
  std::string record;
};

using Record = PropertyList::Dictionary;

TEST_F(QVBugReporterTest, TheFirstRunEverIsNoCrashAndIsRecorded) {
  makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  const Date before = std::chrono::system_clock::now();
  EXPECT_EQ(check(), std::nullopt);
  QVBugReporter::startBugReporter("Sample", record);
  const auto written = property_list::read(record);
  ASSERT_TRUE(written);
  const Date launch = *written->at("launch").get<Date>();
  EXPECT_GE(launch, before - 1us);
  EXPECT_LE(launch, std::chrono::system_clock::now() + 1us);
  EXPECT_THAT(opened, IsEmpty());
}

TEST_F(QVBugReporterTest, AnExitAtOrAfterTheLaunchIsACleanEnd) {
  makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  setRecord({{"launch", kLaunch}, {"exit", kLaunch}});
  EXPECT_EQ(check(), std::nullopt);
  setRecord({{"launch", kLaunch}, {"exit", kLaunch + 1s}});
  EXPECT_EQ(check(), std::nullopt);
}

TEST_F(QVBugReporterTest, AnExitBeforeTheLaunchIsNone) {
  const std::string log = makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  setRecord({{"launch", kLaunch}, {"exit", kLaunch - 1us}});
  EXPECT_EQ(check(), log);
}

TEST_F(QVBugReporterTest, AnExitThatIsNoDateIsNone) {
  const std::string log = makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  setRecord({{"launch", kLaunch}, {"exit", std::string("2026-11-21")}});
  EXPECT_EQ(check(), log);
  setRecord({{"launch", std::int64_t{5}}});
  EXPECT_EQ(check(), std::nullopt);
}

TEST_F(QVBugReporterTest, WithoutANewerLogNothingIsReportedOrLogged) {
  QVLog::createNewLog();
  setRecord({{"launch", kLaunch}});
  for (const auto& logs : {userLogs, localLogs}) {
    makeLog(logs + "/CrashReporter", "Sample_1.crash", kLaunch);
    makeLog(logs + "/DiagnosticReports", "Sample_1.crash", kLaunch - 1h);
  }
  EXPECT_EQ(check(), std::nullopt);
  EXPECT_THAT(opened, IsEmpty());
  EXPECT_THAT(logText(), Not(HasSubstr("crashed")));
}

TEST_F(QVBugReporterTest, TheFourFoldersAreSearchedInOrder) {
  setRecord({{"launch", kLaunch}});
  for (const auto& folder : {localLogs + "/DiagnosticReports", localLogs + "/CrashReporter",
                             userLogs + "/DiagnosticReports", userLogs + "/CrashReporter"}) {
    const std::string log = makeLog(folder, "Sample_1.crash", kLaunch + 1h);
    EXPECT_EQ(check(), log);
  }
}

TEST_F(QVBugReporterTest, OnlyTheLastMatchOfAFolderIsExamined) {
  setRecord({{"launch", kLaunch}});
  makeLog(userLogs + "/CrashReporter", "Sample_2026-11-20.crash", kLaunch + 1h);
  makeLog(userLogs + "/CrashReporter", "Sample_2026-11-21.crash", kLaunch - 1h);
  EXPECT_EQ(check(), std::nullopt);
  const std::string other =
      makeLog(userLogs + "/DiagnosticReports", "Sample_1.crash", kLaunch + 1h);
  EXPECT_EQ(check(), other);
}

TEST_F(QVBugReporterTest, TheLastMatchIsTheLastInByteOrder) {
  setRecord({{"launch", kLaunch}});
  makeLog(userLogs + "/CrashReporter", "SAMPLE_9.crash", kLaunch + 1h);
  makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  const std::string last = makeLog(userLogs + "/CrashReporter", "sample_0.crash", kLaunch + 1h);
  makeLog(userLogs + "/CrashReporter", "zebra_1.crash", kLaunch + 1h);
  EXPECT_EQ(check(), last);
}

TEST_F(QVBugReporterTest, NamesBeginWithTheApplicationsAndAnUnderscoreInEitherCase) {
  setRecord({{"launch", kLaunch}});
  for (const char* name :
       {"Sample-1.crash", "Sample.crash", "Sample", "MySample_1.crash", "Sampler_1.crash"}) {
    makeLog(userLogs + "/CrashReporter", name, kLaunch + 1h);
  }
  EXPECT_EQ(check(), std::nullopt);
  const std::string log = makeLog(userLogs + "/CrashReporter", "sÄmple_1.crash", kLaunch + 1h);
  EXPECT_EQ(check("Sämple"), log);
}

TEST_F(QVBugReporterTest, AQuoteInTheNameFindsNothingAndLosesNothing) {
  setRecord({{"launch", kLaunch}, {"other", true}});
  const std::string log = makeLog(userLogs + "/CrashReporter", "Anna's App_1.crash", kLaunch + 1h);
  EXPECT_EQ(check("Anna's App"), std::nullopt);
  QVBugReporter::startBugReporter("Anna's App", record);
  EXPECT_TRUE(fs::exists(log));
  const auto written = property_list::read(record);
  EXPECT_EQ(written->count("other"), 1U);
  EXPECT_GT(*written->at("launch").get<Date>(), kLaunch);
}

TEST_F(QVBugReporterTest, AFolderInPlaceOfALogIsExaminedLikeOne) {
  setRecord({{"launch", kLaunch}});
  fs::create_directories(userLogs + "/CrashReporter/Sample_1.crash");
  EXPECT_EQ(check(), userLogs + "/CrashReporter/Sample_1.crash");
}

TEST_F(QVBugReporterTest, AnUnreadableFolderHasNoLogs) {
  setRecord({{"launch", kLaunch}});
  makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  fs::permissions(userLogs + "/CrashReporter", fs::perms::none);
  const std::string other =
      makeLog(userLogs + "/DiagnosticReports", "Sample_1.crash", kLaunch + 1h);
  EXPECT_EQ(check(), other);
}

TEST_F(QVBugReporterTest, ACrashIsLoggedAndOpenedByIdentifierWithoutABundledReporter) {
  QVLog::createNewLog();
  setRecord({{"launch", kLaunch}});
  const std::string log = makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  EXPECT_EQ(check(), log);
  EXPECT_THAT(opened, ElementsAre(log + " by com.quorvale.BugReporter"));
  EXPECT_THAT(logText(), HasSubstr("Application crashed on last launch\n"));
}

TEST_F(QVBugReporterTest, TheSwitchKeepsTheReporterClosedButTheCrashIsAnswered) {
  QVLog::createNewLog();
  setRecord({{"launch", kLaunch}});
  const std::string log = makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  setPreference(std::string("1"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(check(), log);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Crash reporter disabled\n"));
  EXPECT_THAT(opened, IsEmpty());
  EXPECT_THAT(logText(), testing::ContainsRegex(" - Application crashed on last launch\n"
                                                "[^\n]+ - Crash reporter disabled\n$"));
}

TEST_F(QVBugReporterTest, TheSwitchIsTheTextOneOrANumberEqualToYes) {
  setRecord({{"launch", kLaunch}});
  makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  for (const PropertyList& on : {PropertyList(true), PropertyList(1), PropertyList(1.0)}) {
    setPreference(on);
    check();
  }
  EXPECT_THAT(opened, IsEmpty());
  for (const PropertyList& off :
       {PropertyList("YES"), PropertyList(""), PropertyList(false), PropertyList(2)}) {
    setPreference(off);
    check();
  }
  EXPECT_EQ(opened.size(), 4U);
}

TEST_F(QVBugReporterTest, TheDelegateIsToldOnTheMainThreadWithoutTheStartWaiting) {
  setRecord({{"launch", kLaunch}});
  const std::string log = makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  setPreference(std::string("1"));
  std::vector<std::string> told;
  std::thread([&] {
    QVBugReporter::startBugReporter(
        "Sample", record,
        QVBugReporterDelegate{.applicationDidCrashWithLog = [&](const std::string& path) {
          EXPECT_TRUE(main_thread::isCurrent());
          told.push_back(path);
        }});
  }).join();
  EXPECT_THAT(told, IsEmpty());
  while (main_thread::pumpOneEvent(0s)) {
  }
  EXPECT_THAT(told, ElementsAre(log));
}

TEST_F(QVBugReporterTest, ADelegateThatDoesNotRespondIsLeftAlone) {
  setRecord({{"launch", kLaunch}});
  makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  QVBugReporter::startBugReporter("Sample", record, QVBugReporterDelegate{});
  EXPECT_FALSE(main_thread::pumpOneEvent(0s));
  EXPECT_EQ(opened.size(), 1U);
}

TEST_F(QVBugReporterTest, WithoutACrashTheDelegateIsNotTold) {
  bool told = false;
  QVBugReporter::startBugReporter(
      "Sample", record,
      QVBugReporterDelegate{
          .applicationDidCrashWithLog = [&](const std::string&) { told = true; }});
  while (main_thread::pumpOneEvent(0s)) {
  }
  EXPECT_FALSE(told);
}

TEST_F(QVBugReporterTest, TheSameLogIsReportedOnce) {
  setRecord({{"launch", kLaunch}});
  makeLog(userLogs + "/CrashReporter", "Sample_1.crash", kLaunch + 1h);
  QVBugReporter::startBugReporter("Sample", record);
  EXPECT_EQ(opened.size(), 1U);
  QVBugReporter::startBugReporter("Sample", record);
  EXPECT_EQ(opened.size(), 1U);
  makeLog(userLogs + "/CrashReporter", "Sample_1.crash", std::chrono::system_clock::now() + 1s);
  QVBugReporter::startBugReporter("Sample", record);
  EXPECT_EQ(opened.size(), 2U);
}

TEST_F(QVBugReporterTest, ARunThatStopsLeavesNoCrash) {
  QVBugReporter::startBugReporter("Sample", record);
  QVBugReporter::stopBugReporter(record);
  makeLog(userLogs + "/CrashReporter", "Sample_1.crash", std::chrono::system_clock::now() + 1h);
  EXPECT_EQ(check(), std::nullopt);
  QVBugReporter::startBugReporter("Sample", record);
  EXPECT_THAT(opened, IsEmpty());
  EXPECT_NE(check(), std::nullopt);
}

TEST_F(QVBugReporterTest, ARecordFileIsBinaryAndKeepsItsOtherKeys) {
  const Date fine = kLaunch + 123456us;
  setRecord({{"other", std::string("kept")}, {"date", fine}});
  const auto kept = property_list::read(record)->at("date");
  QVBugReporter::startBugReporter("Sample", record);
  QVBugReporter::stopBugReporter(record);
  EXPECT_THAT(test::readFile(record), testing::StartsWith("bplist00"));
  const auto written = property_list::read(record);
  EXPECT_EQ(written->size(), 4U);
  EXPECT_EQ(written->at("other"), PropertyList("kept"));
  EXPECT_EQ(written->at("date"), kept);
  EXPECT_GE(*written->at("exit").get<Date>(), *written->at("launch").get<Date>());
}

TEST_F(QVBugReporterTest, ADamagedRecordCountsAsNoneAndIsKeptAside) {
  sandbox.makeFile("home/anna/record.plist", "damaged");
  EXPECT_EQ(check(), std::nullopt);
  QVBugReporter::startBugReporter("Sample", record);
  EXPECT_TRUE(property_list::read(record));
  EXPECT_EQ(test::readFile(record + ".damaged"), "damaged");
}

TEST_F(QVBugReporterTest, ARecordThatCannotBeWrittenIsSurvived) {
  QVBugReporter::startBugReporter("Sample", sandbox.home() + "/missing/record.plist");
  QVBugReporter::stopBugReporter("");
  const std::string folder = sandbox.makeDirectory("home/anna/folder");
  QVBugReporter::stopBugReporter(folder);
  EXPECT_TRUE(fs::is_directory(folder));
  EXPECT_FALSE(fs::exists(folder + ".damaged"));
}

TEST_F(QVBugReporterTest, ADamagedRecordThatCannotBeKeptAsideIsReplaced) {
  sandbox.makeFile("home/anna/record.plist", "damaged again");
  sandbox.makeFile("home/anna/record.plist.damaged", "damaged before");
  QVBugReporter::startBugReporter("Sample", record);
  EXPECT_TRUE(property_list::read(record));
  EXPECT_EQ(test::readFile(record + ".damaged"), "damaged before");
  EXPECT_EQ(test::readFile(record + ".damaged-2"), "damaged again");
}

TEST_F(QVBugReporterTest, WithoutARecordFileTheUserDefaultsHoldTheRecord) {
  const std::string file = sandbox.home() + "/Library/Preferences/QVBugReporterTest.plist";
  const Date before = std::chrono::system_clock::now();
  QVBugReporter::startBugReporter();
  ASSERT_TRUE(property_list::read(file));
  ASSERT_EQ(property_list::read(file)->count("launch"), 1U);
  EXPECT_GE(*property_list::read(file)->at("launch").get<Date>(), before - 1us) << "cut short";
  QVBugReporter::stopBugReporter();
  EXPECT_EQ(property_list::read(file)->count("exit"), 1U);
  EXPECT_EQ(QVBugReporter::checkForCrashes(), std::nullopt);
}

TEST_F(QVBugReporterTest, ANameThatNobodyGaveIsPrintedAsNull) {
  platform::user_defaults::setObject("launch", kLaunch);
  const std::string log = makeLog(userLogs + "/CrashReporter", "(null)_1.crash", kLaunch + 1h);
  EXPECT_EQ(QVBugReporter::checkForCrashes(), log);
  QVBugReporter::startBugReporterWithDelegate(std::nullopt);
  EXPECT_EQ(opened.size(), 2U);
}

TEST_F(QVBugReporterTest, TheShortestFormWithADelegateTellsItOfACrash) {
  platform::user_defaults::setObject("launch", kLaunch);
  const std::string log = makeLog(userLogs + "/CrashReporter", "(null)_1.crash", kLaunch + 1h);
  std::vector<std::string> told;
  QVBugReporter::startBugReporterWithDelegate(QVBugReporterDelegate{
      .applicationDidCrashWithLog = [&](const std::string& path) { told.push_back(path); }});
  while (main_thread::pumpOneEvent(0s)) {
  }
  EXPECT_THAT(told, ElementsAre(log));
  EXPECT_GT(*platform::user_defaults::object("launch")->get<Date>(), kLaunch);
}

TEST_F(QVBugReporterTest, ADateInTheArgumentsIsNoRecord) {
  const char* const arguments[] = {"program", "-launch", "2026-11-20"};
  platform::user_defaults::setArguments(3, arguments);
  EXPECT_EQ(QVBugReporter::checkForCrashes(), std::nullopt);
}

// The superuser gives files away; anna is known to the sandbox.
class QVBugReporterChownTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
  }
  // The owner of a file at `relative` after it was passed to chownPlist.
  unsigned ownerAfterwards(const std::string& relative) const {
    const std::string path = sandbox.makeFile(relative);
    QVBugReporter::chownPlist(path);
    return statusOf(path).st_uid;
  }
  static struct stat statusOf(const std::string& path) {
    struct stat status {};
    ::stat(path.c_str(), &status);
    return status;
  }
  Sandbox sandbox;
};

TEST_F(QVBugReporterChownTest, AFileBelowUsersIsGivenToTheNextComponent) {
  EXPECT_EQ(ownerAfterwards("Users/anna/record.plist"), Sandbox::kConsoleUserId);
  EXPECT_EQ(statusOf(sandbox.path("Users/anna/record.plist")).st_gid, 0U);
}

TEST_F(QVBugReporterChownTest, TheFirstUsersComponentCounts) {
  EXPECT_EQ(ownerAfterwards("Users/bert/Users/anna/record.plist"), Sandbox::kOtherUserId);
}

TEST_F(QVBugReporterChownTest, AFileOutsideUsersStaysWhose) {
  EXPECT_EQ(ownerAfterwards("users/anna/record.plist"), 0U);
  EXPECT_EQ(ownerAfterwards("anna/Users"), 0U);
  EXPECT_EQ(ownerAfterwards("UsersX/anna/record.plist"), 0U);
}

TEST_F(QVBugReporterChownTest, AFolderUsersItselfStaysWhose) {
  const std::string path = sandbox.makeDirectory("anna/Users");
  QVBugReporter::chownPlist(path + "/");
  EXPECT_EQ(statusOf(path).st_uid, 0U);
  QVBugReporter::chownPlist("");
}

TEST_F(QVBugReporterChownTest, AUserThatNobodyKnowsChangesNothing) {
  EXPECT_EQ(ownerAfterwards("Users/mallory/record.plist"), 0U);
}

TEST_F(QVBugReporterChownTest, WhatChownWouldReadAsAnOptionOrAGroupIsPassedOver) {
  const std::string annas = sandbox.makeFile("reference");
  ASSERT_EQ(::chown(annas.c_str(), Sandbox::kConsoleUserId, 0), 0);
  EXPECT_EQ(ownerAfterwards("Users/--reference=" + annas.substr(1) + "/record.plist"), 0U);
  EXPECT_EQ(ownerAfterwards("Users/anna:anna/record.plist"), 0U);
}

TEST_F(QVBugReporterChownTest, ARecordBelowUsersIsGivenAwayWhenItIsWritten) {
  const std::string path = sandbox.makeDirectory("Users/anna") + "/record.plist";
  QVBugReporter::stopBugReporter(path);
  EXPECT_EQ(statusOf(path).st_uid, Sandbox::kConsoleUserId);
  EXPECT_TRUE(property_list::read(path));
  QVBugReporter::startBugReporter("Sample", path);
  EXPECT_EQ(property_list::read(path)->size(), 2U) << "written again, now that it is anna's";
}

TEST_F(QVBugReporterChownTest, ALinkInAPersonsFolderGivesNothingAway) {
  const std::string secret = sandbox.makeFile("root/secret", "secret");
  const std::string folder = sandbox.makeDirectory("Users/anna");
  ASSERT_EQ(::chown(folder.c_str(), Sandbox::kConsoleUserId, 0), 0);
  fs::create_symlink(secret, folder + "/record.plist");
  QVBugReporter::chownPlist(folder + "/record.plist");
  QVBugReporter::stopBugReporter(folder + "/record.plist");
  EXPECT_EQ(statusOf(secret).st_uid, 0U);
  EXPECT_EQ(test::readFile(secret), "secret");
}

TEST_F(QVBugReporterChownTest, ARecordInAPersonsFolderIsThatPersons) {
  const std::string folder = sandbox.makeDirectory("Users/anna");
  ASSERT_EQ(::chown(folder.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
  QVBugReporter::stopBugReporter(folder + "/record.plist");
  EXPECT_EQ(statusOf(folder + "/record.plist").st_uid, Sandbox::kConsoleUserId);
  EXPECT_TRUE(property_list::read(folder + "/record.plist"));
}

}  // namespace
