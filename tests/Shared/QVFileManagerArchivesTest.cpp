#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "Shared/QVFileManager.h"
#include "tests/support/FileChangesFixture.h"
#include "tests/support/WaitFor.h"
#include "tests/support/ZipBuilder.h"

namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::waitFor;
using test::zipOf;
using testing::ElementsAre;
using testing::IsEmpty;

class QVFileManagerArchivesTest : public test::FileChangesFixture {
 protected:
  std::string archive() const { return inHome("archive.zip"); }
  std::string folder() const { return inHome("unpacked"); }
  std::string makeBundleInHome() const {
    makeFileInHome("Sample.app/Contents/file", "contents");
    fs::create_symlink("file", inHome("Sample.app/Contents/link"));
    return inHome("Sample.app");
  }
};

TEST_F(QVFileManagerArchivesTest, AnArchiveKeepsTheFoldersOwnNameAndIsUnpackedAgain) {
  asUser(Rights::impossible, [this] {
    EXPECT_TRUE(QVFileManager::compressFile(makeBundleInHome(), archive()));
    EXPECT_TRUE(QVFileManager::decompressFile(archive(), folder()));
    EXPECT_EQ(readFile(folder() + "/Sample.app/Contents/file"), "contents");
    EXPECT_EQ(fs::read_symlink(folder() + "/Sample.app/Contents/link"), "file");
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerArchivesTest, WithoutTheParentTheContentsStandAlone) {
  asUser(Rights::impossible, [this] {
    EXPECT_TRUE(QVFileManager::compressFile(makeBundleInHome(), archive(), false));
    EXPECT_TRUE(QVFileManager::decompressFile(archive(), folder()));
    EXPECT_THAT(namesIn(folder()), ElementsAre("Contents"));
  });
}

TEST_F(QVFileManagerArchivesTest, AnArchiveThatIsThereIsTrashedFirst) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("archive.zip", "old");
    EXPECT_TRUE(QVFileManager::compressFile(makeBundleInHome(), archive()));
    EXPECT_EQ(readFile(trash() + "/archive.zip"), "old");
    EXPECT_TRUE(readFile(archive()).starts_with("PK"));
  });
}

TEST_F(QVFileManagerArchivesTest, WhenTheArchiverFailsTheOldArchiveIsInTheTrashAndTheAnswerIsNo) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("archive.zip", "old");
    EXPECT_FALSE(QVFileManager::compressFile(inHome("missing"), archive()));
    EXPECT_EQ(readFile(trash() + "/archive.zip"), "old");
    EXPECT_FALSE(exists(archive()));
  });
}

TEST_F(QVFileManagerArchivesTest, AnArchiveThatIsProtectedIsTrashedWithAdministratorRights) {
  const std::string old = sandbox_.makeFile("protected/archive.zip", "old");
  asUser(Rights::granted, [&] {
    // The tool that trashes it is not waited for: the old one may still be there to be answered.
    QVFileManager::compressFile(makeBundleInHome(), old);
    EXPECT_TRUE(waitFor([&] { return !exists(old); })) << "nobody may make a new one there";
    EXPECT_EQ(readFile(trash() + "/archive.zip"), "old");
  });
}

TEST_F(QVFileManagerArchivesTest, AFolderThatIsThereIsRecycledFirst) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("archive.zip", zipOf({{"file", "new"}}));
    makeFileInHome("unpacked/file", "old");
    EXPECT_TRUE(QVFileManager::decompressFile(archive(), folder()));
    EXPECT_EQ(readFile(folder() + "/file"), "new");
    EXPECT_EQ(readFile(trash() + "/unpacked/file"), "old");
    EXPECT_TRUE(exists(inHome(".local/share/Trash/info/unpacked.trashinfo"))) << "to restore it";
  });
}

// What is there cannot be taken away: there is no Trash.
class QVFileManagerUnmovableTest : public QVFileManagerArchivesTest {
 protected:
  void takeTheTrashAway() const { makeFileInHome(".Trash"); }
};

TEST_F(QVFileManagerUnmovableTest, AnArchiveThatCannotBeTrashedIsReplacedWhole) {
  asUser(Rights::impossible, [this] {
    takeTheTrashAway();
    makeFileInHome("archive.zip", "old");
    EXPECT_TRUE(QVFileManager::compressFile(makeBundleInHome(), archive()));
    EXPECT_TRUE(readFile(archive()).starts_with("PK"));
    EXPECT_TRUE(QVFileManager::decompressFile(archive(), folder()));
  });
}

TEST_F(QVFileManagerUnmovableTest, AnArchiveThatIsOnlyStillThereIsNoSuccess) {
  asUser(Rights::impossible, [this] {
    takeTheTrashAway();
    makeFileInHome("archive.zip", "old");
    EXPECT_FALSE(QVFileManager::compressFile(inHome("missing"), archive()));
    EXPECT_EQ(readFile(archive()), "old");
  });
}

TEST_F(QVFileManagerUnmovableTest, AFolderThatCannotBeRecycledIsMergedInto) {
  asUser(Rights::impossible, [this] {
    takeTheTrashAway();
    makeFileInHome("unpacked/Sample.app/Contents/file", "old");
    makeFileInHome("unpacked/Sample.app/Contents/kept", "kept");
    EXPECT_TRUE(QVFileManager::compressFile(makeBundleInHome(), archive()));
    EXPECT_TRUE(QVFileManager::decompressFile(archive(), folder()));
    EXPECT_THAT(namesIn(folder()), ElementsAre("Sample.app"));
    EXPECT_THAT(namesIn(folder() + "/Sample.app/Contents"), ElementsAre("file", "kept", "link"));
    EXPECT_EQ(readFile(folder() + "/Sample.app/Contents/file"), "contents");
  });
}

TEST_F(QVFileManagerUnmovableTest, AFolderThatIsOnlyStillThereIsNoSuccess) {
  asUser(Rights::impossible, [this] {
    takeTheTrashAway();
    makeFileInHome("unpacked/old", "old");
    EXPECT_FALSE(QVFileManager::decompressFile(inHome("missing.zip"), folder()));
    EXPECT_EQ(readFile(folder() + "/old"), "old");
  });
}

// Administrator rights would trash it.
TEST_F(QVFileManagerArchivesTest, AProtectedFolderIsNotTakenAwayWithAdministratorRights) {
  const std::string old = sandbox_.makeDirectory("protected/folder");
  asUser(Rights::granted, [&] {
    makeFileInHome("archive.zip", zipOf({{"file", "new"}}));
    EXPECT_FALSE(QVFileManager::decompressFile(archive(), old));
    EXPECT_THAT(namesIn(old), IsEmpty());
    EXPECT_FALSE(exists(trash() + "/folder"));
  });
}

TEST_F(QVFileManagerArchivesTest, AHostileArchiveLeavesNoFolderAndTheAnswerIsNo) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("archive.zip", zipOf({{"file", "x"}, {"../outside", "bad"}}));
    EXPECT_FALSE(QVFileManager::decompressFile(archive(), folder()));
    EXPECT_FALSE(exists(folder()));
    EXPECT_FALSE(exists(inHome("outside")));
  });
}

TEST_F(QVFileManagerArchivesTest, NoPathsAreAFailureAndTouchNothing) {
  asUser(Rights::impossible, [this] {
    const std::string source = makeBundleInHome();
    EXPECT_FALSE(QVFileManager::compressFile("", archive()));
    EXPECT_FALSE(QVFileManager::compressFile(source, ""));
    EXPECT_FALSE(QVFileManager::decompressFile("", folder()));
    EXPECT_FALSE(QVFileManager::decompressFile(archive(), ""));
    EXPECT_FALSE(QVFileManager::decompressFile(inHome("missing.zip"), folder()));
    EXPECT_TRUE(exists(source));
    EXPECT_FALSE(exists(folder()));
  });
}

TEST_F(QVFileManagerArchivesTest, TheSuperuserTrashesIntoTheConsoleUsersTrash) {
  asSuperuser([this] {
    const std::string source = makeBundleInHome();
    giveToUser(makeFileInHome("archive.zip", "old"));
    EXPECT_TRUE(QVFileManager::compressFile(source, archive()));
    EXPECT_EQ(readFile(trash() + "/archive.zip"), "old");
    EXPECT_TRUE(QVFileManager::decompressFile(archive(), folder()));
    EXPECT_EQ(readFile(folder() + "/Sample.app/Contents/file"), "contents");
  });
}

}  // namespace
