#include "Shared/QVLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "platform/PropertyList.h"
#include "tests/support/GatedFile.h"
#include "tests/support/LogFixture.h"

namespace {

namespace fs = std::filesystem;
using platform::PropertyList;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

class QVLogTest : public test::LogFixture {
 protected:
  QVLogTest() { becomeOrdinaryUser(); }

  void makeLog(int number) const {
    fs::create_directories(folder());
    std::ofstream(file(number)) << "old " << number;
  }

  void writePreferences(const PropertyList& disableLogging) const {
    fs::create_directories(fs::path(preferencesFile()).parent_path());
    ASSERT_TRUE(platform::property_list::write(preferencesFile(),
                                               {{"disable-logging", disableLogging}},
                                               platform::property_list::Format::xml)
                    .ok());
  }

  std::string createNewLogAndCapture() const {
    testing::internal::CaptureStdout();
    QVLog::createNewLog();
    QVLog::finishWriting();
    return testing::internal::GetCapturedStdout();
  }

  void expectLogging(bool on) const {
    EXPECT_EQ(createNewLogAndCapture(), on ? "" : "Logging is disabled\n");
    EXPECT_EQ(QVLog::sharedController().loggingDisabled(), !on);
    EXPECT_EQ(QVLog::sharedController().fileHandle() != nullptr, on);
    EXPECT_EQ(fs::exists(folder()), on);
  }
};

TEST_F(QVLogTest, EveryThreadIsAnsweredTheSameInstance) {
  std::vector<QVLog*> seen(8);
  std::vector<std::thread> threads;
  for (QVLog*& log : seen) threads.emplace_back([&log] { log = &QVLog::sharedController(); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::set<QVLog*>(seen.begin(), seen.end()).size(), 1U);
}

TEST_F(QVLogTest, ASecondAllocationYieldsNone) {
  QVLog* const first = QVLog::allocWithZone();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(QVLog::allocWithZone(), nullptr);
  EXPECT_EQ(first->writeQueue(), nullptr) << "allocated, not yet set up";
  EXPECT_EQ(&QVLog::sharedController(), first);
  EXPECT_NE(first->writeQueue(), nullptr);
}

TEST_F(QVLogTest, AllocationAfterTheSharedInstanceYieldsNone) {
  QVLog::sharedController();
  EXPECT_EQ(QVLog::allocWithZone(), nullptr);
}

TEST_F(QVLogTest, KeepingAndLettingGoDoNothing) {
  QVLog& log = QVLog::sharedController();
  EXPECT_EQ(log.copyWithZone(), &log);
  EXPECT_EQ(log.retain(), &log);
  EXPECT_EQ(log.autorelease(), &log);
  log.release();
  log.release();
  EXPECT_EQ(log.retainCount(), 4294967295U);
  EXPECT_EQ(&QVLog::sharedController(), &log);
}

TEST_F(QVLogTest, FieldsAreReadAsTheyWereSet) {
  QVLog& log = QVLog::sharedController();
  EXPECT_EQ(log.appName(), "QVLogTest") << "the program's own name while none is set";
  log.setAppName("Other");
  EXPECT_EQ(log.appName(), "Other");
  log.setAppName(std::nullopt);
  EXPECT_EQ(log.appName(), "QVLogTest");
  EXPECT_EQ(log.fileHandle(), nullptr);
  const auto file = std::make_shared<test::GatedFile>();
  log.setFileHandle(file);
  EXPECT_EQ(log.fileHandle(), file);
  log.setBytesWritten(7);
  EXPECT_EQ(log.bytesWritten(), 7U);
  log.setBytesInQueue(8);
  EXPECT_EQ(log.bytesInQueue(), 8U);
  EXPECT_FALSE(log.loggingDisabled());
  log.setLoggingDisabled(true);
  EXPECT_TRUE(log.loggingDisabled());
  log.setWriteQueue(nullptr);
  EXPECT_EQ(log.writeQueue(), nullptr);
}

TEST_F(QVLogTest, WithoutACurrentLogTheFolderAndTheFirstFileAreMade) {
  EXPECT_EQ(createNewLogAndCapture(), "");
  EXPECT_THAT(QVLog::availableLogs(), ElementsAre(file(1)));
  EXPECT_NE(QVLog::sharedController().fileHandle(), nullptr);
}

TEST_F(QVLogTest, ANewLogBeginsWithItsHeader) {
  QVLog::createNewLog();
  QVLog::finishWriting();
  const std::string date = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} [+-][0-9]{4}";
  const auto header = messages(1);
  ASSERT_EQ(header.size(), sizeof(void*) == 8 ? 4U : 3U) << read(1);
  EXPECT_THAT(header[0], MatchesRegex("Log started: " + date));
  EXPECT_EQ(header[1], "Path: " + fs::read_symlink("/proc/self/exe").string());
  EXPECT_THAT(header[2],
              MatchesRegex("System: OS X .+, [1-9][0-9]* CPU\\(s\\), [0-9]+\\.[0-9]{2} GB RAM"));
  EXPECT_EQ(header.back() == "Running in 64-bit mode", sizeof(void*) == 8);
  EXPECT_THAT(read(1), MatchesRegex("(" + date + " - [^\n]+\n)+")) << "no blank lines";
}

TEST_F(QVLogTest, FullGenerationsMoveUpAndTheOldestGoes) {
  for (int number = 1; number <= 5; ++number) makeLog(number);
  EXPECT_EQ(createNewLogAndCapture(), "");
  EXPECT_THAT(read(1), StartsWith("20"));
  for (int number = 2; number <= 5; ++number) {
    EXPECT_EQ(read(number), "old " + std::to_string(number - 1));
  }
  EXPECT_FALSE(fs::exists(file(6)));
}

TEST_F(QVLogTest, GapsAreNotClosed) {
  makeLog(1);
  makeLog(3);
  QVLog::createNewLog();
  EXPECT_EQ(read(2), "old 1");
  EXPECT_FALSE(fs::exists(file(3)));
  EXPECT_EQ(read(4), "old 3");
  EXPECT_FALSE(fs::exists(file(5)));
}

TEST_F(QVLogTest, WithoutACurrentLogTheOlderOnesStay) {
  makeLog(2);
  makeLog(5);
  QVLog::createNewLog();
  EXPECT_EQ(read(2), "old 2");
  EXPECT_EQ(read(5), "old 5");
}

TEST_F(QVLogTest, OtherApplicationsFilesStay) {
  makeLog(1);
  const std::string other = folder() + "/Other.1.log";
  std::ofstream(other) << "other";
  QVLog::createNewLog();
  EXPECT_EQ(test::readFile(other), "other");
}

TEST_F(QVLogTest, AvailableLogsAreListedInOrder) {
  EXPECT_THAT(QVLog::availableLogs(), IsEmpty());
  makeLog(4);
  makeLog(2);
  EXPECT_THAT(QVLog::availableLogs(), ElementsAre(file(2), file(4)));
}

TEST_F(QVLogTest, AStringOneTurnsLoggingOff) {
  writePreferences(PropertyList("1"));
  expectLogging(false);
}

TEST_F(QVLogTest, ABooleanTrueTurnsLoggingOff) {
  writePreferences(PropertyList(true));
  expectLogging(false);
}

TEST_F(QVLogTest, ANumberOneTurnsLoggingOff) {
  writePreferences(PropertyList(std::int64_t{1}));
  expectLogging(false);
}

TEST_F(QVLogTest, AnyOtherValueLeavesLoggingOn) {
  for (const PropertyList& value :
       {PropertyList("0"), PropertyList("yes"), PropertyList("01"), PropertyList(""),
        PropertyList(false), PropertyList(std::int64_t{2}), PropertyList(std::int64_t{0}),
        PropertyList(PropertyList::Array{PropertyList("1")})}) {
    writePreferences(value);
    expectLogging(true);
  }
}

TEST_F(QVLogTest, BrokenPreferencesLeaveLoggingOn) {
  fs::create_directories(preferencesFile());
  expectLogging(true);
  fs::remove(preferencesFile());
  std::ofstream(preferencesFile()) << "<plist><dict><key>disable-logging</key><string>1</str";
  expectLogging(true);
}

TEST_F(QVLogTest, TurningLoggingOffLetsGoOfTheOpenFile) {
  QVLog::createNewLog();
  QVLog::finishWriting();
  ASSERT_NE(QVLog::sharedController().fileHandle(), nullptr);
  writePreferences(PropertyList("1"));
  createNewLogAndCapture();
  EXPECT_EQ(QVLog::sharedController().fileHandle(), nullptr);
}

TEST_F(QVLogTest, LoggingOnceTurnedOffStaysOff) {
  writePreferences(PropertyList("1"));
  createNewLogAndCapture();
  fs::remove(preferencesFile());
  QVLog::createNewLog();
  QVLog::finishWriting();
  EXPECT_TRUE(QVLog::sharedController().loggingDisabled());
  EXPECT_EQ(read(1), "") << "a file is started, but nothing reaches it";
}

TEST_F(QVLogTest, ANameCountsForNothingWhereTheProgramHasOne) {
  QVLog::createNewLog("Named");
  EXPECT_EQ(QVLog::sharedController().appName(), "QVLogTest");
  EXPECT_TRUE(fs::exists(file(1)));
}

// Run by the next test as a program of another name.
TEST(QVLogTestChild, DISABLED_StartsALog) {
  QVLog::createNewLog();
}

TEST_F(QVLogTest, TheExtensionOfTheProgramIsNoPartOfTheName) {
  const std::string program = sandbox_.home() + "/Named.tool";
  fs::copy_file("/proc/self/exe", program);
  const std::string command = program +
                              " --gtest_also_run_disabled_tests"
                              " --gtest_filter=QVLogTestChild.DISABLED_StartsALog >/dev/null";
  EXPECT_EQ(std::system(command.c_str()), 0);
  EXPECT_TRUE(fs::exists(folder() + "/Named.1.log"));
}

TEST_F(QVLogTest, ANewLogStartsCountingItsBytesAnew) {
  QVLog& log = QVLog::sharedController();
  log.setBytesWritten(1234);
  QVLog::createNewLog();
  QVLog::finishWriting();
  EXPECT_EQ(log.bytesWritten(), read(1).size());
}

TEST_F(QVLogTest, AFolderThatCannotBeMadeIsPrinted) {
  fs::permissions(sandbox_.home(), fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_EQ(createNewLogAndCapture(), "Unable to create folder " + folder() + ".\n");
  EXPECT_EQ(QVLog::sharedController().fileHandle(), nullptr);
}

TEST_F(QVLogTest, AMoveThatFailsIsPrintedAndEndsTheRotation) {
  for (int number = 1; number <= 4; ++number) makeLog(number);
  fs::create_directories(file(5) + "/kept");
  fs::permissions(file(5) + "/kept", fs::perms::none);
  fs::permissions(file(5), fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_EQ(createNewLogAndCapture(), "Unable to move file " + file(4) + " to " + file(5) + ".\n");
  EXPECT_EQ(QVLog::sharedController().fileHandle(), nullptr);
  EXPECT_EQ(read(1), "old 1");
  EXPECT_EQ(read(4), "old 4");
  fs::permissions(file(5), fs::perms::owner_all);
}

TEST_F(QVLogTest, AFileThatCannotBeMadeIsPrintedWithTheReason) {
  fs::create_directories(folder());
  fs::permissions(folder(), fs::perms::owner_read | fs::perms::owner_exec);
  const std::string printed = createNewLogAndCapture();
  EXPECT_THAT(printed, StartsWith("Unable to create log file " + file(1) + " - "));
  EXPECT_THAT(printed, testing::EndsWith("Permission denied\n"));
  EXPECT_EQ(QVLog::sharedController().fileHandle(), nullptr);
}

TEST_F(QVLogTest, AFileThatCannotBeOpenedIsPassedOverInSilence) {
  fs::create_directories(folder());
  testing::internal::CaptureStdout();
  ::umask(0777);
  QVLog::createNewLog();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(fs::exists(file(1)));
  EXPECT_EQ(QVLog::sharedController().fileHandle(), nullptr);
}

}  // namespace
