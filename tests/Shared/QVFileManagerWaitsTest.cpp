#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "Shared/QVFileManager.h"
#include "Shared/QVLog.h"
#include "platform/FileSystem.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = platform::file_system;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::readFile;
using test::Sandbox;
using testing::HasSubstr;
using testing::Not;

class QVFileManagerWaitsTest : public testing::Test {
 protected:
  Sandbox sandbox_;

  // The superuser's log is the console user's.
  QVFileManagerWaitsTest() {
    if (Sandbox::canSimulateMachine()) {
      sandbox_.simulateMachine();
      sandbox_.setConsoleUser(Sandbox::kConsoleUser);
    }
    QVLog::createNewLog("test");
  }

  static std::string log() {
    QVLog::finishWriting();
    return readFile(QVLog::availableLogs().at(0));
  }
  static int count(const std::string& text, const std::string& part) {
    int found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
      ++found;
    }
    return found;
  }
  // A file that was last changed `age` ago.
  std::string agedFile(const std::string& relative, milliseconds age) const {
    const std::string path = sandbox_.makeFile(relative, "x");
    EXPECT_TRUE(fs::setModificationDate(path, std::chrono::system_clock::now() - age).ok());
    return path;
  }
  template <class Call>
  static milliseconds timeOf(Call call) {
    const auto start = steady_clock::now();
    call();
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
  }
};

TEST_F(QVFileManagerWaitsTest, AMissingFileIsLoggedOnceAndWaitedForHalfAMillisecond) {
  const std::string path = sandbox_.path("missing");
  const auto time = timeOf([&] { QVFileManager::waitForFileCreation(path, seconds(60)); });
  EXPECT_LT(time, seconds(2));
  EXPECT_EQ(count(log(), "File " + path + " is not yet created. Waiting..."), 1);
}

TEST_F(QVFileManagerWaitsTest, AnEmptyFileIsNotCreatedYetAndAFilledOneIs) {
  const std::string empty = sandbox_.makeFile("empty");
  QVFileManager::waitForFileCreation(empty, seconds(0));
  EXPECT_THAT(log(), HasSubstr("File " + empty + " is not yet created. Waiting..."));
  const std::string filled = sandbox_.makeFile("filled", "x");
  QVFileManager::waitForFileCreation(filled, seconds(60));
  EXPECT_THAT(log(), Not(HasSubstr(filled)));
}

TEST_F(QVFileManagerWaitsTest, ANegativeTimeOutIsOverAtOnce) {
  QVFileManager::waitForFileCreation(sandbox_.path("missing"), seconds(-1));
  EXPECT_THAT(log(), Not(HasSubstr("not yet created")));
}

TEST_F(QVFileManagerWaitsTest, AFileThatWasChangedLongAgoIsNotWaitedFor) {
  const std::string path = agedFile("old", seconds(60));
  QVFileManager::waitForFileWrites(path);
  QVFileManager::waitForFileWrites(path, "no such lock");
  QVFileManager::waitForFileWrites(sandbox_.path("missing"));
  EXPECT_THAT(log(), Not(HasSubstr("Waiting...")));
}

TEST_F(QVFileManagerWaitsTest, AFileThatWasJustChangedIsWaitedForUntilItHasBeenQuiet) {
  const std::string path = agedFile("new", milliseconds(3700));
  const auto time = timeOf([&] { QVFileManager::waitForFileWrites(path); });
  EXPECT_GE(time, milliseconds(250));
  EXPECT_LT(time, milliseconds(3000));
  EXPECT_THAT(log(), HasSubstr("File " + path + " is currently being written to. Waiting..."));
  EXPECT_THAT(log(), HasSubstr("File " + path + " finished writing."));
}

TEST_F(QVFileManagerWaitsTest, AFileThatKeepsChangingKeepsTheCaller) {
  const std::string path = agedFile("new", milliseconds(3800));
  std::thread writer([&] {
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_TRUE(
        fs::setModificationDate(path, std::chrono::system_clock::now() - milliseconds(3700)).ok());
  });
  const auto time = timeOf([&] { QVFileManager::waitForFileWrites(path); });
  writer.join();
  EXPECT_GE(time, milliseconds(350));
}

TEST_F(QVFileManagerWaitsTest, ALockFileBesideAnOldFileIsLoggedAndNotWaitedFor) {
  const std::string path = agedFile("folder/old", seconds(60));
  sandbox_.makeFile("folder/lock");
  const auto time = timeOf([&] { QVFileManager::waitForFileWrites(path, "lock"); });
  EXPECT_LT(time, seconds(2));
  EXPECT_THAT(log(), HasSubstr("File " + path + " is currently being written to. Waiting..."));
  EXPECT_THAT(log(), HasSubstr("File " + path + " finished writing."));
}

TEST_F(QVFileManagerWaitsTest, AMissingFileWithItsLockFileIsWaitedFor) {
  const std::string path = sandbox_.path("folder/coming");
  sandbox_.makeFile("folder/lock");
  std::thread maker([&] {
    std::this_thread::sleep_for(milliseconds(50));
    const std::string made = agedFile("folder/made", seconds(60));
    std::filesystem::rename(made, path);
  });
  const auto time = timeOf([&] { QVFileManager::waitForFileWrites(path, "lock"); });
  maker.join();
  EXPECT_GE(time, milliseconds(45));
  EXPECT_TRUE(fs::exists(path));
  EXPECT_THAT(log(), HasSubstr("File " + path + " finished writing."));
}

}  // namespace
