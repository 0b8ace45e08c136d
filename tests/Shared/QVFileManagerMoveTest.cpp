#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Shared/QVFileManager.h"
#include "platform/Text.h"
#include "tests/support/CaseInsensitiveDisk.h"
#include "tests/support/ConsoleOf.h"
#include "tests/support/FileChangesFixture.h"
#include "tests/support/ImmutableFlag.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using test::CaseInsensitiveDisk;
using test::consoleOf;
using test::readFile;
using test::waitFor;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

class QVFileManagerMoveTest : public test::FileChangesFixture {
 protected:
  static constexpr char kAuthorizing[] = "Authorizing...";

  static std::string failed(const std::string& path, const std::string& reason) {
    return "Error moving file: " + path + ": " + reason + ".";
  }
};

TEST_F(QVFileManagerMoveTest, AnItemGetsItsNewPath) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("folder/a.txt", "a");
    fs::create_directory(inHome("to"));
    EXPECT_TRUE(QVFileManager::moveFile(inHome("folder"), inHome("to/other"), seconds(60)));
    EXPECT_TRUE(QVFileManager::moveFile(inHome("to/other/a.txt"), inHome("b.txt"), false));
    EXPECT_EQ(readFile(inHome("b.txt")), "a");
    EXPECT_THAT(namesIn(inHome("to/other")), IsEmpty());
    EXPECT_FALSE(exists(inHome("folder")));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerMoveTest, AnItemIsMovedToAnotherDisk) {
  const std::string file = sandbox_.makeFile("a.txt", "a");
  const std::string moved = sandbox_.mountTmpfs("disk") + "/b.txt";
  EXPECT_TRUE(QVFileManager::moveFile(file, moved, seconds(0)));
  EXPECT_EQ(readFile(moved), "a");
  EXPECT_FALSE(exists(file));
}

TEST_F(QVFileManagerMoveTest, WhatIsThereAlreadyIsNotReplaced) {
  asUser(Rights::impossible, [this] {
    const std::string file = makeFileInHome("a.txt", "a");
    const std::string taken = makeFileInHome("b.txt", "b");
    EXPECT_FALSE(QVFileManager::moveFile(file, taken, false));
    EXPECT_EQ(readFile(file), "a");
    EXPECT_EQ(readFile(taken), "b");
    EXPECT_THAT(logged(), ElementsAre(failed(taken, "File exists")));
  });
}

TEST_F(QVFileManagerMoveTest, WhatIsThereAlreadyIsReplacedWithAdministratorRights) {
  const std::string file = sandbox_.makeFile("protected/a.txt", "a");
  const std::string taken = sandbox_.makeFile("protected/b.txt", "b");
  asUser(Rights::granted, [&] {
    EXPECT_TRUE(QVFileManager::moveFile(file, taken, seconds(10)));
    EXPECT_TRUE(waitFor([&] { return readFile(taken) == "a"; }));
    EXPECT_THAT(logged(), ElementsAre(failed(taken, "File exists"), kAuthorizing));
  });
}

TEST_F(QVFileManagerMoveTest, WhatTheUserMayNotMoveIsMovedWithAdministratorRights) {
  const std::string file = sandbox_.makeFile("protected/a.txt", "a");
  const std::string moved = inHome("a.txt");
  asUser(Rights::granted, [&] {
    EXPECT_TRUE(QVFileManager::moveFile(file, moved, seconds(10)));
    EXPECT_EQ(readFile(moved), "a");
    EXPECT_THAT(logged(), ElementsAre(failed(moved, "Permission denied"), kAuthorizing));
  });
}

TEST_F(QVFileManagerMoveTest, RefusedRightsAreAFailure) {
  const std::string file = sandbox_.makeFile("protected/a.txt");
  const std::string moved = inHome("a.txt");
  asUser(Rights::refused, [&] {
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::moveFile(file, moved)); }), "");
    EXPECT_TRUE(exists(file));
    EXPECT_THAT(logged(), ElementsAre(failed(moved, "Permission denied"), kAuthorizing));
  });
}

TEST_F(QVFileManagerMoveTest, WithNobodyToAskItFailsWithoutWaiting) {
  const std::string file = sandbox_.makeFile("protected/a.txt");
  const std::string moved = inHome("a.txt");
  asUser(Rights::impossible, [&] {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::moveFile(file, moved, seconds(60))); }),
              kNoAdministrator);
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(10));
    EXPECT_THAT(logged(), ElementsAre(failed(moved, "Permission denied"), kAuthorizing));
  });
}

TEST_F(QVFileManagerMoveTest, WithoutTheFallBackNoRightsAreAskedForAndNoneAreSpokenOf) {
  const std::string file = sandbox_.makeFile("protected/a.txt");
  const std::string moved = inHome("a.txt");
  asUser(Rights::impossible, [&] {
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::moveFile(file, moved, false)); }), "");
    EXPECT_THAT(logged(), ElementsAre(failed(moved, "Permission denied")));
  });
}

TEST_F(QVFileManagerMoveTest, TheSuperusersFallBackStartsTheToolAndTheWaitTellsTheOutcome) {
  const std::string file = sandbox_.makeFile("readonly/a.txt");
  makeReadOnly(sandbox_.path("readonly"));
  const std::string moved = sandbox_.path("readonly/b.txt");
  asSuperuser([&] {
    EXPECT_TRUE(QVFileManager::moveFile(file, moved)) << "the tool was started";
    EXPECT_FALSE(QVFileManager::moveFile(file, moved, seconds(1)));
    const std::string line = failed(moved, "Read-only file system");
    EXPECT_THAT(logged(), ElementsAre(line, kAuthorizing, line, kAuthorizing));
  });
}

TEST_F(QVFileManagerMoveTest, AMissingSourceIsAFailure) {
  const std::string missing = sandbox_.path("missing");
  asSuperuser([&] {
    EXPECT_FALSE(QVFileManager::moveFile(missing, sandbox_.path("b"), seconds(60)));
    EXPECT_THAT(logged(), ElementsAre(failed(missing, "No such file or directory"), kAuthorizing));
  });
}

TEST_F(QVFileManagerMoveTest, WhatNamesNoItemIsRefused) {
  const std::string kept = sandbox_.makeFile("folder/kept");
  const std::string to = sandbox_.makeDirectory("to");
  fs::current_path(sandbox_.root());
  asSuperuser([&] {
    for (const QVFileManager::Path& path : pathsThatNameNoItem(kept)) {
      EXPECT_FALSE(QVFileManager::moveFile(path, to + "/x")) << path.value_or("none");
      EXPECT_FALSE(QVFileManager::moveFile(kept, path, seconds(60))) << path.value_or("none");
    }
    EXPECT_TRUE(exists(kept));
    EXPECT_THAT(namesIn(to), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
  });
}

// --- What is unlocked ---

TEST_F(QVFileManagerMoveTest, AnExistingDestinationIsUnlocked) {
  const std::string file = sandbox_.makeFile("a.txt", "a");
  const std::string taken = sandbox_.makeFile("b.txt", "b");
  const test::ImmutableFlag flag(taken);
  if (!flag.isSet()) GTEST_SKIP() << "needs a file system with locks";
  asSuperuser([&] {
    EXPECT_TRUE(QVFileManager::moveFile(file, taken));
    EXPECT_TRUE(waitFor([&] { return readFile(taken) == "a"; }));
  });
}

TEST_F(QVFileManagerMoveTest, TheDestinationIsTreatedAsTheFolderThatTheItemGoesInto) {
  const std::string source = sandbox_.makeDirectory("A.app");
  const std::string inside = sandbox_.makeFile("to/A.app/Contents/x");
  const std::string beside = sandbox_.makeFile("to/B.app/x");
  const test::ImmutableFlag insideFlag(inside);
  const test::ImmutableFlag besideFlag(beside);
  if (!insideFlag.isSet()) GTEST_SKIP() << "needs a file system with locks";
  asSuperuser([&] {
    EXPECT_FALSE(QVFileManager::moveFile(source, sandbox_.path("to"), false));
    EXPECT_FALSE(QVFileManager::isFileLocked(inside));
    EXPECT_TRUE(QVFileManager::isFileLocked(beside));
  });
}

// --- Names that differ in letter case only ---

TEST_F(QVFileManagerMoveTest, ANameMayChangeInItsLetterCase) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("f/Readme", "a");
    EXPECT_TRUE(QVFileManager::moveFile(inHome("f/Readme"), inHome("f/README"), false));
    EXPECT_THAT(namesIn(inHome("f")), ElementsAre("README"));
    EXPECT_EQ(readFile(inHome("f/README")), "a");
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerMoveTest, AChangeOfLetterCaseIsNotWaitedFor) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("f/\u00c4.txt", "a");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(
        QVFileManager::moveFile(inHome("f/\u00c4.txt"), inHome("f/\u00e4.txt"), seconds(60)));
    // Onto itself: the source is there to stay.
    EXPECT_TRUE(
        QVFileManager::moveFile(inHome("f/\u00e4.txt"), inHome("f/\u00e4.txt"), seconds(60)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(10));
    EXPECT_THAT(namesIn(inHome("f")), ElementsAre("\u00e4.txt"));
    EXPECT_EQ(readFile(inHome("f/\u00e4.txt")), "a");
  });
}

TEST_F(QVFileManagerMoveTest, AfterAChangeOfLetterCaseThereIsAPauseOfHalfAMillisecond) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("f/a");
    std::chrono::steady_clock::duration shortest = seconds(60);
    for (int i = 0; i < 10; ++i) {
      const auto start = std::chrono::steady_clock::now();
      EXPECT_TRUE(QVFileManager::moveFile(inHome("f/a"), inHome("f/A"), seconds(60)));
      shortest = std::min(shortest, std::chrono::steady_clock::now() - start);
      EXPECT_TRUE(QVFileManager::moveFile(inHome("f/A"), inHome("f/a"), false));
    }
    EXPECT_GE(shortest, std::chrono::microseconds(500));
    EXPECT_LT(shortest, std::chrono::milliseconds(50));
  });
}

TEST_F(QVFileManagerMoveTest, OnADiskThatDoesNotTellLetterCaseTheNameChangesAsWell) {
  if (!CaseInsensitiveDisk::isAvailable()) GTEST_SKIP() << CaseInsensitiveDisk::kNeeds;
  const CaseInsensitiveDisk disk(sandbox_, "disk");
  sandbox_.makeFile("disk/Readme", "a");
  sandbox_.makeFile("disk/Folder/x", "x");
  ASSERT_TRUE(exists(disk.mountPoint() + "/README"));
  for (const char* name : {"/Readme", "/Folder"}) {
    const std::string source = disk.mountPoint() + name;
    const std::string moved = disk.mountPoint() + platform::text::lowercased(name);
    EXPECT_TRUE(QVFileManager::moveFile(source, moved, false)) << name;
    EXPECT_TRUE(QVFileManager::moveFile(moved, source, seconds(60))) << name;
  }
  EXPECT_EQ(readFile(disk.mountPoint() + "/Readme"), "a");
  EXPECT_EQ(readFile(disk.mountPoint() + "/Folder/x"), "x");
  EXPECT_THAT(namesIn(disk.mountPoint()), IsSupersetOf({"folder", "readme"}));
  EXPECT_THAT(namesIn(disk.mountPoint()), Not(Contains(HasSubstr(" 2"))));
}

TEST_F(QVFileManagerMoveTest, WhereBothNamesAreTakenBothItemsStay) {
  asUser(Rights::impossible, [this] {
    const std::string source = makeFileInHome("f/Readme", "a");
    const std::string taken = makeFileInHome("f/README", "b");
    EXPECT_FALSE(QVFileManager::moveFile(source, taken, false));
    EXPECT_THAT(namesIn(inHome("f")), ElementsAre("README", "Readme"));
    EXPECT_EQ(readFile(source), "a");
    EXPECT_EQ(readFile(taken), "b");
    EXPECT_THAT(logged(), ElementsAre(failed(taken, "File exists")));
  });
}

TEST_F(QVFileManagerMoveTest, WhereBothNamesAreTakenNoToolIsAskedToReplaceTheOther) {
  asUser(Rights::granted, [this] {
    const std::string source = makeFileInHome("f/Readme", "a");
    const std::string taken = makeFileInHome("f/README", "b");
    EXPECT_FALSE(QVFileManager::moveFile(source, taken));
    EXPECT_THAT(logged(), ElementsAre(failed(taken, "File exists")));
    EXPECT_THAT(namesIn(inHome("f")), ElementsAre("README", "Readme"));
    EXPECT_EQ(readFile(source), "a");
    EXPECT_EQ(readFile(taken), "b");
  });
}

TEST_F(QVFileManagerMoveTest, ALinkThatHasTheOtherNameStaysAsWell) {
  asUser(Rights::granted, [this] {
    const std::string source = makeFileInHome("f/Readme", "a");
    std::filesystem::create_symlink("nowhere", inHome("f/README"));
    EXPECT_FALSE(QVFileManager::moveFile(source, inHome("f/README")));
    EXPECT_EQ(readFile(source), "a");
    EXPECT_TRUE(std::filesystem::is_symlink(inHome("f/README")));
  });
}

TEST_F(QVFileManagerMoveTest, AChangeOfLetterCaseIsMadeWithAdministratorRightsToo) {
  const std::string file = sandbox_.makeFile("protected/Readme", "a");
  const std::string moved = protected_ + "/README";
  asUser(Rights::granted, [&] {
    EXPECT_TRUE(QVFileManager::moveFile(file, moved));
    EXPECT_TRUE(waitFor([&] { return readFile(moved) == "a"; }));
    EXPECT_THAT(logged(), ElementsAre(failed(moved, "Permission denied"), kAuthorizing));
  });
  EXPECT_THAT(namesIn(protected_), ElementsAre("README"));
}

// --- An empty file ---

class QVFileManagerEmptyFileTest : public QVFileManagerMoveTest {
 protected:
  void SetUp() override {
    QVFileManagerMoveTest::SetUp();
    ::setenv("TMPDIR", temporary_.c_str(), 1);
    if (!IsSkipped()) giveToUser(temporary_);
  }

  const std::string temporary_ = sandbox_.makeDirectory("temporary");
};

TEST_F(QVFileManagerEmptyFileTest, AnEmptyFileIsMade) {
  asUser(Rights::impossible, [this] {
    EXPECT_TRUE(QVFileManager::createEmptyFile(inHome("a.txt")));
    EXPECT_TRUE(fs::is_regular_file(inHome("a.txt")) && fs::is_empty(inHome("a.txt")));
    EXPECT_THAT(namesIn(temporary_), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerEmptyFileTest, WhereTheUserMayNotWriteItIsMadeWithAdministratorRights) {
  const std::string file = protected_ + "/a.txt";
  asUser(Rights::granted, [&] {
    EXPECT_TRUE(QVFileManager::createEmptyFile(file));
    EXPECT_TRUE(waitFor([&] { return exists(file); }));
    EXPECT_TRUE(fs::is_empty(file));
    EXPECT_THAT(logged(), ElementsAre(failed(file, "Permission denied"), kAuthorizing));
  });
}

TEST_F(QVFileManagerEmptyFileTest, AFailureLeavesNothingBehind) {
  asUser(Rights::impossible, [this] {
    const std::string taken = makeFileInHome("a.txt", "old");
    EXPECT_FALSE(QVFileManager::createEmptyFile(taken));
    EXPECT_FALSE(QVFileManager::createEmptyFile(protected_ + "/a.txt"));
    EXPECT_FALSE(QVFileManager::createEmptyFile(std::nullopt));
    EXPECT_FALSE(QVFileManager::createEmptyFile(""));
    EXPECT_EQ(readFile(taken), "old");
    EXPECT_THAT(namesIn(temporary_), IsEmpty());
  });
}

TEST_F(QVFileManagerEmptyFileTest, WithoutATemporaryFolderItFailsInSilence) {
  fs::remove(temporary_);
  asUser(Rights::granted, [this] {
    EXPECT_FALSE(QVFileManager::createEmptyFile(inHome("a.txt")));
    EXPECT_FALSE(exists(inHome("a.txt")));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

}  // namespace
