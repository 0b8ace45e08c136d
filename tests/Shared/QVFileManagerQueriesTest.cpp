#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "Shared/QVFileManager.h"
#include "platform/FileSystem.h"
#include "tests/support/Sandbox.h"

namespace {

using std::filesystem::create_symlink;
using test::Sandbox;

class QVFileManagerQueriesTest : public testing::Test {
 protected:
  Sandbox sandbox_;
};

TEST_F(QVFileManagerQueriesTest, ALinkExistsWhenItsTargetDoes) {
  create_symlink(sandbox_.makeFile("file"), sandbox_.path("link"));
  create_symlink("nowhere", sandbox_.path("dangling"));
  EXPECT_TRUE(QVFileManager::fileExistsAtPath(sandbox_.path("file")));
  EXPECT_TRUE(QVFileManager::fileExistsAtPath(sandbox_.path("link")));
  EXPECT_FALSE(QVFileManager::fileExistsAtPath(sandbox_.path("dangling")));
  EXPECT_FALSE(QVFileManager::fileExistsAtPath(""));
}

TEST_F(QVFileManagerQueriesTest, AMissingPathIsNoDirectoryAndALinkToAFolderIsOne) {
  create_symlink(sandbox_.makeDirectory("folder"), sandbox_.path("link"));
  EXPECT_TRUE(QVFileManager::isDirectoryAtPath(sandbox_.path("link")));
  EXPECT_FALSE(QVFileManager::isDirectoryAtPath(sandbox_.path("missing")));
  EXPECT_FALSE(QVFileManager::isDirectoryAtPath(sandbox_.makeFile("file")));
}

TEST_F(QVFileManagerQueriesTest, AnApplicationIsAPackageAndAFolderIsNot) {
  EXPECT_TRUE(QVFileManager::isPackageAtPath(sandbox_.makeDirectory("A.app")));
  EXPECT_FALSE(QVFileManager::isPackageAtPath(sandbox_.makeDirectory("folder")));
}

TEST_F(QVFileManagerQueriesTest, OnlyALinkIsALinkWhereverItLeads) {
  create_symlink("nowhere", sandbox_.path("dangling"));
  EXPECT_TRUE(QVFileManager::isSymbolicLinkAtPath(sandbox_.path("dangling")));
  EXPECT_FALSE(QVFileManager::isSymbolicLinkAtPath(sandbox_.makeFile("file")));
  EXPECT_FALSE(QVFileManager::isSymbolicLinkAtPath(sandbox_.path("missing")));
}

TEST_F(QVFileManagerQueriesTest, AMissingFileIsNotLocked) {
  const std::string file = sandbox_.makeFile("file");
  EXPECT_FALSE(QVFileManager::isFileLocked(sandbox_.path("missing")));
  EXPECT_FALSE(QVFileManager::isFileLocked(file));
  if (!platform::file_system::setImmutable(file, true).ok()) {
    GTEST_SKIP() << "needs the right to lock files";
  }
  EXPECT_TRUE(QVFileManager::isFileLocked(file));
}

TEST_F(QVFileManagerQueriesTest, OutsideTheVolumesEverythingIsMounted) {
  for (const char* path : {"/Volumes", "/VolumesX", "/nowhere/at/all", "relative", ""}) {
    EXPECT_TRUE(QVFileManager::isVolumeMountedForPath(path)) << path;
    EXPECT_TRUE(QVFileManager::isDriveMountedForPath(path)) << path;
  }
}

TEST_F(QVFileManagerQueriesTest, TheTwoMountQuestionsDifferWithoutTheSlash) {
  EXPECT_TRUE(QVFileManager::isDriveMountedForPath("/VolumesX/gone/file"));
  EXPECT_FALSE(QVFileManager::isVolumeMountedForPath("/VolumesX/gone/file"));
}

TEST_F(QVFileManagerQueriesTest, AnUnmountedDriveIsSearchedForByItsDoubledSlash) {
  testing::internal::CaptureStderr();
  EXPECT_FALSE(QVFileManager::isDriveMountedForPath("/Volumes/Backup gone/folder/file"));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("mountpoint: //Volumes/Backup gone\n"));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(QVFileManager::isVolumeMountedForPath("/Volumes/Backup gone/folder/file"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The volumes' folder is at the root, so a root of its own is what the question is asked in.
TEST_F(QVFileManagerQueriesTest, AMountedVolumeIsFound) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << "needs root, to change the root";
  sandbox_.makeDirectory("Volumes/Disk");
  EXPECT_EXIT(
      {
        const bool changed = ::chroot(sandbox_.root().c_str()) == 0;
        const bool right = QVFileManager::isVolumeMountedForPath("/Volumes/Disk/a") &&
                           QVFileManager::isDriveMountedForPath("/Volumes/Disk") &&
                           !QVFileManager::isDriveMountedForPath("/Volumes/Other/a");
        std::_Exit(changed && right ? 0 : 1);
      },
      testing::ExitedWithCode(0), "mountpoint: //Volumes/Disk\n");
}

TEST_F(QVFileManagerQueriesTest, AReferenceMeansAnItemThatIsThere) {
  const std::string file = sandbox_.makeFile("file");
  EXPECT_EQ(QVFileManager::stringToFSRef(file).path(), file);
  EXPECT_EQ(QVFileManager::stringToFSRef(sandbox_.path("missing")).path(), "");
}

TEST_F(QVFileManagerQueriesTest, AReferenceLeadsBackToItsPath) {
  const std::string file = sandbox_.makeFile("\xC3\xA4 file");
  create_symlink("nowhere", sandbox_.path("link"));
  for (const std::string& path : {file, sandbox_.path("link"), sandbox_.root()}) {
    EXPECT_EQ(QVFileManager::stringWithFSRef(QVFileManager::stringToFSRef(path)), path);
  }
  EXPECT_EQ(QVFileManager::stringWithFSRef(platform::FileReference()), "");
}

TEST_F(QVFileManagerQueriesTest, AChangeIsToldByTheItemsAttributes) {
  const std::string file = sandbox_.makeFile("file");
  struct stat before {};
  ASSERT_EQ(::stat(file.c_str(), &before), 0);
  QVFileManager::notifyFileSystemChanged(file);
  struct stat after {};
  ASSERT_EQ(::stat(file.c_str(), &after), 0);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  EXPECT_NE(std::make_pair(after.st_ctim.tv_sec, after.st_ctim.tv_nsec),
            std::make_pair(before.st_ctim.tv_sec, before.st_ctim.tv_nsec));
  EXPECT_EQ(SendFinderSyncEvent(QVFileManager::stringToFSRef(file)), 0);
  EXPECT_EQ(SendFinderSyncEvent(platform::FileReference()), ENOENT);
  QVFileManager::notifyFileSystemChanged(sandbox_.path("missing"));
}

}  // namespace
