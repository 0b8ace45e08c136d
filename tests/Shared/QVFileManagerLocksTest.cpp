#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Shared/QVFileManager.h"
#include "Shared/QVLog.h"
#include "platform/FileSystem.h"
#include "tests/support/LogFixture.h"

namespace {

namespace fs = platform::file_system;
using std::filesystem::create_directory_symlink;
using std::filesystem::create_symlink;
using test::Sandbox;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class QVFileManagerLocksTest : public test::LogFixture {
 protected:
  // From here on there is a log, and its reader is an ordinary user.
  void startLog() {
    becomeOrdinaryUser();
    QVLog::createNewLog("test");
  }
  std::string log() const {
    QVLog::finishWriting();
    return read(1);
  }
  // In the home, relative to the sandbox.
  std::string inHome(const std::string& name) const {
    return sandbox_.home().substr(sandbox_.root().size() + 1) + "/" + name;
  }
  static bool canLock(const std::string& file) {
    const bool can = fs::setImmutable(file, true).ok();
    static_cast<void>(fs::setImmutable(file, false).ok());
    return can;
  }
};

constexpr char kNeedsLocks[] = "needs root and a file system with locks";

TEST_F(QVFileManagerLocksTest, ALockedFileIsImmutableUntilItIsUnlocked) {
  const std::string file = sandbox_.makeFile("file");
  if (!canLock(file)) GTEST_SKIP() << kNeedsLocks;
  QVFileManager::lockFile(file);
  EXPECT_TRUE(QVFileManager::isFileLocked(file));
  QVFileManager::unlockFile(file);
  EXPECT_FALSE(QVFileManager::isFileLocked(file));
}

TEST_F(QVFileManagerLocksTest, AFolderIsLockedInItsFilesAndNotInItsFolders) {
  const std::string file = sandbox_.makeFile("tree/file");
  const std::string deep = sandbox_.makeFile("tree/in/deep/file");
  if (!canLock(file)) GTEST_SKIP() << kNeedsLocks;
  QVFileManager::lockFolder(sandbox_.path("tree"));
  EXPECT_TRUE(QVFileManager::isFileLocked(file));
  EXPECT_TRUE(QVFileManager::isFileLocked(deep));
  for (const char* folder : {"tree", "tree/in", "tree/in/deep"}) {
    EXPECT_FALSE(QVFileManager::isFileLocked(sandbox_.path(folder))) << folder;
  }
  QVFileManager::lockFile(sandbox_.path("tree/in"));
  QVFileManager::unlockFolder(sandbox_.path("tree"));
  EXPECT_FALSE(QVFileManager::isFileLocked(file));
  EXPECT_FALSE(QVFileManager::isFileLocked(deep));
  EXPECT_TRUE(QVFileManager::isFileLocked(sandbox_.path("tree/in")));
}

TEST_F(QVFileManagerLocksTest, LinksToFoldersAreFollowedOnceAndAroundALoopNotForever) {
  const std::string file = sandbox_.makeFile("elsewhere/file");
  sandbox_.makeDirectory("tree");
  create_directory_symlink(sandbox_.path("elsewhere"), sandbox_.path("tree/link"));
  create_directory_symlink("..", sandbox_.path("tree/up"));
  create_directory_symlink(".", sandbox_.path("tree/self"));
  if (!canLock(file)) GTEST_SKIP() << kNeedsLocks;
  QVFileManager::lockFolder(sandbox_.path("tree"));
  EXPECT_TRUE(QVFileManager::isFileLocked(file));
}

TEST_F(QVFileManagerLocksTest, AFailureOfEitherIsLoggedAsAFailedUnlock) {
  startLog();
  const std::string missing = sandbox_.path("missing");
  QVFileManager::lockFile(missing);
  EXPECT_THAT(log(), HasSubstr("Unable to unlock file " + missing + ": No such file or directory"));
  QVFileManager::unlockFile(missing + "2");
  EXPECT_THAT(log(),
              HasSubstr("Unable to unlock file " + missing + "2: No such file or directory"));
}

TEST_F(QVFileManagerLocksTest, UnlockingWhatIsNotLockedIsSilent) {
  const bool locks = canLock(sandbox_.makeFile("probe"));
  startLog();
  if (!locks) GTEST_SKIP() << kNeedsLocks;
  const std::string file = sandbox_.makeFile(inHome("tree/file"));
  create_symlink("nowhere", sandbox_.path(inHome("tree/link")));
  QVFileManager::unlockFile(file);
  QVFileManager::unlockFolder(sandbox_.path(inHome("tree")));
  QVFileManager::unlockFolder(sandbox_.path("missing"));
  EXPECT_THAT(log(), Not(HasSubstr("Unable to unlock")));
}

TEST_F(QVFileManagerLocksTest, AFileSystemWithoutLocksIsLogged) {
  startLog();
  const std::string file = "/proc/self/status";
  QVFileManager::unlockFile(file);
  EXPECT_THAT(log(), HasSubstr("Unable to unlock file " + file + ": Operation not supported"));
}

TEST_F(QVFileManagerLocksTest, AnOrdinaryUserMayNotLockAndIsLogged) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const std::string file = sandbox_.makeFile("home/anna/file");
  QVLog::createNewLog("test");
  QVFileManager::lockFile(file);
  EXPECT_THAT(log(), HasSubstr("Unable to unlock file " + file + ": Operation not permitted"));
  EXPECT_FALSE(QVFileManager::isFileLocked(file));
}

TEST_F(QVFileManagerLocksTest, AnOrdinaryUserCannotUnlockWhatTheSuperuserLocked) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string file = sandbox_.makeFile("home/anna/file");
  ASSERT_EQ(::chown(file.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
  if (!fs::setImmutable(file, true).ok()) GTEST_SKIP() << kNeedsLocks;
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  QVLog::createNewLog("test");
  QVFileManager::unlockFile(file);
  EXPECT_THAT(log(), HasSubstr("Unable to unlock file " + file + ": Operation not permitted"));
  EXPECT_TRUE(QVFileManager::isFileLocked(file));
}

TEST_F(QVFileManagerLocksTest, PermissionsAreSetAndAFailureIsLogged) {
  const std::string file = sandbox_.makeFile("file");
  QVFileManager::setPosixPermissions(04711, file);
  EXPECT_EQ(fs::attributes(file)->permissions, 04711U);
  startLog();
  QVFileManager::setPosixPermissions(0600, sandbox_.path("missing"));
  EXPECT_THAT(log(), HasSubstr("Error setting permissions for file " + sandbox_.path("missing") +
                               ": No such file or directory"));
}

}  // namespace
