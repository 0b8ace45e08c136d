#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "Shared/QVFileManager.h"
#include "Shared/QVLog.h"
#include "platform/FileSystem.h"
#include "tests/support/LogFixture.h"

namespace {

namespace fs = platform::file_system;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::Not;

class QVFileManagerWaitsTest : public test::LogFixture {
 protected:
  QVFileManagerWaitsTest() {
    becomeOrdinaryUser();
    QVLog::createNewLog("test");
  }

  std::string log() const {
    QVLog::finishWriting();
    return read(1);
  }
  std::string path(const std::string& name) const { return sandbox_.home() + "/" + name; }
  std::string makeFile(const std::string& name, const std::string& contents = "") const {
    return sandbox_.makeFile(path(name).substr(sandbox_.root().size() + 1), contents);
  }
  static int count(const std::string& text, const std::string& part) {
    int found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
      ++found;
    }
    return found;
  }
  // A file that was last changed `age` ago.
  std::string agedFile(const std::string& name, milliseconds age) const {
    const std::string made = makeFile(name, "x");
    makeAged(made, age);
    return made;
  }
  static void makeAged(const std::string& path, milliseconds age) {
    using std::filesystem::file_time_type;
    std::filesystem::last_write_time(path, file_time_type::clock::now() - age);
  }
  template <class Call>
  static steady_clock::duration timeOf(Call call) {
    const auto start = steady_clock::now();
    call();
    return steady_clock::now() - start;
  }
};

TEST_F(QVFileManagerWaitsTest, AMissingFileIsLoggedOnceAndWaitedForHalfAMillisecond) {
  const std::string missing = path("missing");
  const auto time = timeOf([&] { QVFileManager::waitForFileCreation(missing, seconds(60)); });
  EXPECT_LT(time, seconds(2));
  EXPECT_EQ(count(log(), "File " + missing + " is not yet created. Waiting..."), 1);
}

TEST_F(QVFileManagerWaitsTest, APauseIsHalfAMillisecondAndNoMore) {
  steady_clock::duration shortest = seconds(60);
  for (int i = 0; i < 10; ++i) {
    const auto time = timeOf([&] { QVFileManager::waitForFileCreation(path("no"), seconds(60)); });
    shortest = std::min(shortest, time);
  }
  EXPECT_GE(shortest, microseconds(500));
  EXPECT_LT(shortest, milliseconds(50));
}

TEST_F(QVFileManagerWaitsTest, AnEmptyFileIsNotCreatedYetAndAFilledOneIs) {
  const std::string empty = makeFile("empty");
  QVFileManager::waitForFileCreation(empty, seconds(0));
  EXPECT_THAT(log(), HasSubstr("File " + empty + " is not yet created. Waiting..."));
  const std::string filled = makeFile("filled", "x");
  QVFileManager::waitForFileCreation(filled, seconds(60));
  EXPECT_THAT(log(), Not(HasSubstr(filled)));
}

TEST_F(QVFileManagerWaitsTest, ANegativeTimeOutIsOverAtOnce) {
  QVFileManager::waitForFileCreation(path("missing"), seconds(-1));
  EXPECT_THAT(log(), Not(HasSubstr("not yet created")));
}

TEST_F(QVFileManagerWaitsTest, AFileThatWasChangedLongAgoIsNotWaitedFor) {
  const std::string aged = agedFile("old", seconds(60));
  QVFileManager::waitForFileWrites(aged);
  QVFileManager::waitForFileWrites(aged, "no such lock");
  QVFileManager::waitForFileWrites(path("missing"));
  EXPECT_THAT(log(), Not(HasSubstr("Waiting...")));
}

TEST_F(QVFileManagerWaitsTest, AFileThatWasJustChangedIsWaitedForUntilItHasBeenQuiet) {
  const std::string aged = agedFile("new", milliseconds(3700));
  const auto time = timeOf([&] { QVFileManager::waitForFileWrites(aged); });
  EXPECT_GE(time, milliseconds(250));
  EXPECT_LT(time, milliseconds(3000));
  EXPECT_THAT(log(), HasSubstr("File " + aged + " is currently being written to. Waiting..."));
  EXPECT_THAT(log(), HasSubstr("File " + aged + " finished writing."));
}

// Each pause gives the processor away once.
TEST_F(QVFileManagerWaitsTest, AFileThatIsWrittenIsLookedAtEveryHalfMillisecond) {
  const std::string aged = agedFile("new", milliseconds(3000));
  rusage before{};
  rusage after{};
  ::getrusage(RUSAGE_THREAD, &before);
  QVFileManager::waitForFileWrites(aged);
  ::getrusage(RUSAGE_THREAD, &after);
  EXPECT_GT(after.ru_nvcsw - before.ru_nvcsw, 300) << "of two thousand in a second at most";
  EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 3000);
}

TEST_F(QVFileManagerWaitsTest, AFileThatKeepsChangingKeepsTheCaller) {
  const std::string aged = agedFile("new", milliseconds(3800));
  std::thread writer([&] {
    std::this_thread::sleep_for(milliseconds(100));
    makeAged(aged, milliseconds(3700));
  });
  const auto time = timeOf([&] { QVFileManager::waitForFileWrites(aged); });
  writer.join();
  EXPECT_GE(time, milliseconds(350));
}

TEST_F(QVFileManagerWaitsTest, ALockFileBesideAnOldFileIsLoggedAndNotWaitedFor) {
  const std::string aged = agedFile("folder/old", seconds(60));
  makeFile("folder/lock");
  const auto time = timeOf([&] { QVFileManager::waitForFileWrites(aged, "lock"); });
  EXPECT_LT(time, seconds(2));
  EXPECT_THAT(log(), HasSubstr("File " + aged + " is currently being written to. Waiting..."));
  EXPECT_THAT(log(), HasSubstr("File " + aged + " finished writing."));
}

TEST_F(QVFileManagerWaitsTest, AMissingFileWithItsLockFileIsWaitedFor) {
  const std::string coming = path("folder/coming");
  makeFile("folder/lock");
  std::thread maker([&] {
    std::this_thread::sleep_for(milliseconds(50));
    const std::string made = agedFile("folder/made", seconds(60));
    std::filesystem::rename(made, coming);
  });
  const auto time = timeOf([&] { QVFileManager::waitForFileWrites(coming, "lock"); });
  maker.join();
  EXPECT_GE(time, milliseconds(45));
  EXPECT_TRUE(fs::exists(coming));
  EXPECT_THAT(log(), HasSubstr("File " + coming + " finished writing."));
}

}  // namespace
