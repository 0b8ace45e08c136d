#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "Shared/QVFileManager.h"
#include "tests/support/ConsoleOf.h"
#include "tests/support/FileChangesFixture.h"
#include "tests/support/ImmutableFlag.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using test::consoleOf;
using testing::ElementsAre;
using testing::IsEmpty;

class QVFileManagerRemoveTest : public test::FileChangesFixture {
 protected:
  static std::string failed(const std::string& path, const std::string& reason) {
    return "Error removing file: " + path + ": " + reason + ". Authorizing...";
  }
};

TEST_F(QVFileManagerRemoveTest, AMissingItemIsASuccessWithoutAnErrorLine) {
  asUser(Rights::impossible, [this] {
    const std::string missing = inHome("missing");
    EXPECT_TRUE(QVFileManager::removeFile(missing));
    EXPECT_TRUE(QVFileManager::removeFile(missing, false));
    EXPECT_TRUE(QVFileManager::removeFile(missing, seconds(60)));
    const std::string line = "Unable to unlock file " + missing + ": No such file or directory";
    EXPECT_THAT(logged(), ElementsAre(line, line, line));
  });
}

TEST_F(QVFileManagerRemoveTest, ALinkThatLeadsNowhereCountsAsMissing) {
  asUser(Rights::impossible, [this] {
    fs::create_symlink("nowhere", inHome("link"));
    EXPECT_TRUE(QVFileManager::removeFile(inHome("link")));
    EXPECT_TRUE(exists(inHome("link")));
  });
}

TEST_F(QVFileManagerRemoveTest, AnItemIsRemovedWithAllThatIsInItAndNotPutIntoTheTrash) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("folder/in/a.txt");
    const std::string file = makeFileInHome("b.txt");
    fs::create_symlink(file, inHome("folder/link"));
    EXPECT_TRUE(QVFileManager::removeFile(inHome("folder")));
    EXPECT_FALSE(exists(inHome("folder")));
    EXPECT_TRUE(exists(file)) << "a link is removed, not where it leads";
    EXPECT_TRUE(QVFileManager::removeFile(file, seconds(0)));
    EXPECT_FALSE(exists(file));
    EXPECT_FALSE(exists(trash()));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerRemoveTest, WhatTheUserMayNotRemoveIsRemovedWithAdministratorRights) {
  const std::string folder = sandbox_.makeDirectory("protected/folder");
  sandbox_.makeFile("protected/folder/a.txt");
  asUser(Rights::granted, [&] {
    EXPECT_TRUE(QVFileManager::removeFile(folder, seconds(10)));
    EXPECT_FALSE(exists(folder));
    EXPECT_THAT(logged(), ElementsAre(failed(folder, "Permission denied")));
  });
}

TEST_F(QVFileManagerRemoveTest, RefusedRightsAreAFailure) {
  const std::string file = sandbox_.makeFile("protected/a.txt");
  asUser(Rights::refused, [&] {
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::removeFile(file)); }), "");
    EXPECT_TRUE(exists(file));
    EXPECT_THAT(logged(), ElementsAre(failed(file, "Permission denied")));
  });
}

TEST_F(QVFileManagerRemoveTest, WithNobodyToAskItFailsWithoutWaiting) {
  const std::string file = sandbox_.makeFile("protected/a.txt");
  asUser(Rights::impossible, [&] {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::removeFile(file, seconds(60))); }),
              kNoAdministrator);
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(10));
    EXPECT_THAT(logged(), ElementsAre(failed(file, "Permission denied")));
  });
}

TEST_F(QVFileManagerRemoveTest, WithoutTheFallBackNoRightsAreAskedForYetAuthorizingIsLogged) {
  const std::string file = sandbox_.makeFile("protected/a.txt");
  asUser(Rights::impossible, [&] {
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::removeFile(file, false)); }), "");
    EXPECT_TRUE(exists(file));
    EXPECT_THAT(logged(), ElementsAre(failed(file, "Permission denied")));
  });
}

TEST_F(QVFileManagerRemoveTest, ASystemDirectoryIsNotRemovedWithAdministratorRights) {
  const std::string applications = inHome("Applications");
  const std::string file = makeFileInHome("Applications/of others/a.txt");
  asUser(Rights::granted, [&] {
    EXPECT_EQ(
        consoleOf([&] { EXPECT_FALSE(QVFileManager::removeFile(applications, seconds(60))); }),
        "Unable to delete path " + applications + " because it is a system directory.\n");
    EXPECT_TRUE(exists(file));
    EXPECT_THAT(logged(), ElementsAre(failed(file, "Permission denied")));
  });
}

TEST_F(QVFileManagerRemoveTest, TheSuperuserRemovesWhatIsLocked) {
  const std::string file = sandbox_.makeFile("a.txt");
  const test::ImmutableFlag flag(file);
  if (!flag.isSet()) GTEST_SKIP() << "needs a file system with locks";
  asSuperuser([&] {
    EXPECT_TRUE(QVFileManager::removeFile(file));
    EXPECT_FALSE(exists(file));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerRemoveTest, TheSuperusersFallBackStartsTheToolAndTheWaitTellsTheOutcome) {
  const std::string file = sandbox_.makeFile("readonly/a.txt");
  makeReadOnly(sandbox_.path("readonly"));
  asSuperuser([&] {
    EXPECT_FALSE(QVFileManager::removeFile(file, false));
    EXPECT_TRUE(QVFileManager::removeFile(file)) << "the tool was started";
    EXPECT_FALSE(QVFileManager::removeFile(file, seconds(1)));
    const std::string line = failed(file, "Read-only file system");
    EXPECT_THAT(logged(), ElementsAre(line, line, line));
  });
  EXPECT_TRUE(exists(file));
}

TEST_F(QVFileManagerRemoveTest, WhatNamesNoItemIsRefused) {
  const std::string kept = sandbox_.makeFile("folder/kept");
  fs::current_path(sandbox_.root());
  asSuperuser([&] {
    for (const QVFileManager::Path& path : pathsThatNameNoItem(kept)) {
      EXPECT_FALSE(QVFileManager::removeFile(path)) << path.value_or("none");
      EXPECT_FALSE(QVFileManager::removeFile(path, seconds(60))) << path.value_or("none");
    }
    EXPECT_TRUE(exists(kept));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

// --- A folder, if it is empty ---

TEST_F(QVFileManagerRemoveTest, AFolderThatHoldsNothingOfValueIsRemoved) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("folder/.DS_Store");
    makeFileInHome("folder/in/Icon\r");
    EXPECT_TRUE(QVFileManager::removeFolderIfEmpty(inHome("folder")));
    EXPECT_FALSE(exists(inHome("folder")));
    EXPECT_TRUE(QVFileManager::removeFolderIfEmpty(inHome("missing")));
  });
}

TEST_F(QVFileManagerRemoveTest, AFolderThatHoldsSomethingStays) {
  asUser(Rights::impossible, [this] {
    const std::string file = makeFileInHome("folder/in/a.txt");
    EXPECT_FALSE(QVFileManager::removeFolderIfEmpty(inHome("folder")));
    EXPECT_TRUE(exists(file));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerRemoveTest, AFileIsNoEmptyFolder) {
  asUser(Rights::impossible, [this] {
    const std::string file = makeFileInHome("a.txt", "kept");
    EXPECT_FALSE(QVFileManager::removeFolderIfEmpty(file));
    EXPECT_EQ(test::readFile(file), "kept");
  });
}

TEST_F(QVFileManagerRemoveTest, AnEmptyFolderOfOthersIsRemovedWithAdministratorRights) {
  const std::string folder = sandbox_.makeDirectory("protected/empty");
  asUser(Rights::granted, [&] {
    EXPECT_TRUE(QVFileManager::removeFolderIfEmpty(folder));
    EXPECT_TRUE(QVFileManager::removeFile(folder, seconds(10)));
  });
  EXPECT_FALSE(exists(folder));
}

}  // namespace
