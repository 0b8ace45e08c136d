#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "Shared/QVLocalPaths.h"
#include "Shared/QVLog.h"
#include "tests/support/LogFixture.h"

namespace {

namespace fs = std::filesystem;
using test::Sandbox;
using testing::ElementsAre;
using testing::EndsWith;

class QVLogSuperuserTest : public test::LogFixture {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    fs::create_directories(localFolder());
  }

  static std::string localFolder() {
    return folderIn(QVLocalPaths::libraryDirectory(false).value_or(""));
  }
  static std::string localFile() { return fileIn(localFolder(), 1); }
  std::string usersFolder() const {
    return folderIn(sandbox_.homeOf(Sandbox::kConsoleUser) + "/Library");
  }
  void makeUsersFolder() const {
    fs::create_directories(usersFolder());
    for (fs::path made = usersFolder(); made != sandbox_.homeOf(Sandbox::kConsoleUser);
         made = made.parent_path()) {
      ASSERT_EQ(::chown(made.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
    }
  }
  std::string usersFile(int number) const { return fileIn(usersFolder(), number); }

  static std::string printedByNewLog() {
    testing::internal::CaptureStdout();
    QVLog::createNewLog();
    QVLog::finishWriting();
    return testing::internal::GetCapturedStdout();
  }
};

TEST_F(QVLogSuperuserTest, WritesToTheLocalLibraryAndMakesTheUsersFolder) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  EXPECT_EQ(printedByNewLog(), "");
  EXPECT_THAT(test::readFile(localFile()), EndsWith("Running in 64-bit mode\n"));
  EXPECT_TRUE(fs::is_empty(usersFolder()));
  EXPECT_THAT(QVLog::availableLogs(), ElementsAre()) << "the list is of the user's folder";
}

TEST_F(QVLogSuperuserTest, WhatIsMadeInTheUsersHomeBelongsToTheUser) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  printedByNewLog();
  for (fs::path made = usersFolder(); made != sandbox_.homeOf(Sandbox::kConsoleUser);
       made = made.parent_path()) {
    struct stat status {};
    ASSERT_EQ(::stat(made.c_str(), &status), 0) << made;
    EXPECT_EQ(status.st_uid, Sandbox::kConsoleUserId) << made;
  }
}

TEST_F(QVLogSuperuserTest, RotatesTheUsersFilesWhileItsOwnIsTruncated) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  makeUsersFolder();
  std::ofstream(usersFile(1)) << "user's 1";
  std::ofstream(usersFile(2)) << "user's 2";
  std::ofstream(localFile()) << "superuser's old text\n";
  EXPECT_EQ(printedByNewLog(), "");
  EXPECT_EQ(test::readFile(usersFile(2)), "user's 1");
  EXPECT_EQ(test::readFile(usersFile(3)), "user's 2");
  EXPECT_FALSE(fs::exists(usersFile(1)));
  EXPECT_EQ(test::readFile(localFile()).find("superuser's"), std::string::npos);
  EXPECT_FALSE(fs::exists(fileIn(localFolder(), 2)));
  EXPECT_THAT(QVLog::availableLogs(), ElementsAre(usersFile(2), usersFile(3)));
}

TEST_F(QVLogSuperuserTest, WithoutALocalFileTheUsersAreNotRotated) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  fs::create_directories(usersFolder());
  std::ofstream(usersFile(1)) << "user's 1";
  EXPECT_EQ(printedByNewLog(), "");
  EXPECT_EQ(test::readFile(usersFile(1)), "user's 1");
}

TEST_F(QVLogSuperuserTest, WithNobodyAtTheConsoleThereIsNoFolder) {
  EXPECT_EQ(printedByNewLog(), "Unable to create folder (null).\n");
  EXPECT_EQ(QVLog::sharedController().fileHandle(), nullptr);
  EXPECT_THAT(QVLog::availableLogs(), ElementsAre());
}

TEST_F(QVLogSuperuserTest, WithNobodyAtTheConsoleAnExistingLocalFileIsWrittenTo) {
  std::ofstream(localFile()) << "before\n";
  EXPECT_EQ(printedByNewLog(), "Unable to create folder (null).\n");
  QVLog::appendLog("after");
  QVLog::finishWriting();
  EXPECT_THAT(test::readFile(localFile()), testing::StartsWith("before\n"));
  EXPECT_THAT(test::readFile(localFile()), EndsWith(" - after\n"));
}

TEST_F(QVLogSuperuserTest, WithoutTheLocalFolderTheFileCannotBeMade) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  fs::remove_all(localFolder());
  EXPECT_THAT(printedByNewLog(), testing::MatchesRegex("Unable to create log file " + localFile() +
                                                       " - .*No such file or directory\n"));
}

TEST_F(QVLogSuperuserTest, ALinkThatTheUserHasPutInTheWayLeadsNowhere) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  const std::string victim = sandbox_.makeFile("root/victim", "precious");
  makeUsersFolder();
  fs::create_symlink(victim, usersFile(1));
  fs::create_symlink(victim, usersFile(5));
  std::ofstream(localFile()) << "old";
  printedByNewLog();
  QVLog::appendLog("text");
  QVLog::finishWriting();
  EXPECT_EQ(test::readFile(victim), "precious");
  EXPECT_TRUE(fs::is_symlink(usersFile(2))) << "the link itself was moved";
}

}  // namespace
