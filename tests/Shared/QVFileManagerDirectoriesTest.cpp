#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "Shared/QVFileManager.h"
#include "tests/support/ConsoleOf.h"
#include "tests/support/FileChangesFixture.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using test::consoleOf;
using test::Sandbox;
using testing::ElementsAre;
using testing::IsEmpty;

class QVFileManagerDirectoriesTest : public test::FileChangesFixture {
 protected:
  static std::string deniedAt(const std::string& path) {
    return "Error creating folder: " + path + ": Permission denied. Authorizing...";
  }
};

TEST_F(QVFileManagerDirectoriesTest, AFolderIsMadeWithThoseAboveIt) {
  asUser(Rights::impossible, [this] {
    const std::string folder = inHome("a/b/c");
    EXPECT_TRUE(QVFileManager::createDirectory(folder));
    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerDirectoriesTest, AFolderThatIsThereIsASuccess) {
  asUser(Rights::impossible, [this] {
    EXPECT_TRUE(QVFileManager::createDirectory(protected_));
    EXPECT_TRUE(QVFileManager::createDirectory("/"));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerDirectoriesTest, WhatTheUserMayNotMakeIsMadeWithAdministratorRights) {
  asUser(Rights::granted, [this] {
    const std::string folder = protected_ + "/a/b";
    EXPECT_TRUE(QVFileManager::createDirectory(folder, seconds(10)));
    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_THAT(logged(), ElementsAre(deniedAt(folder)));
  });
}

TEST_F(QVFileManagerDirectoriesTest, RefusedRightsAreAFailure) {
  asUser(Rights::refused, [this] {
    const std::string folder = protected_ + "/a";
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::createDirectory(folder)); }), "");
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_THAT(logged(), ElementsAre(deniedAt(folder)));
  });
}

TEST_F(QVFileManagerDirectoriesTest, WithNobodyToAskItFailsWithoutWaiting) {
  asUser(Rights::impossible, [this] {
    const std::string folder = protected_ + "/a";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::createDirectory(folder, seconds(60))); }),
              kNoAdministrator);
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(10));
    EXPECT_THAT(logged(), ElementsAre(deniedAt(folder)));
  });
}

TEST_F(QVFileManagerDirectoriesTest, WithoutTheFallBackNoRightsAreAskedForYetAuthorizingIsLogged) {
  asUser(Rights::granted, [this] {
    const std::string folder = protected_ + "/a";
    EXPECT_FALSE(QVFileManager::createDirectory(folder, false));
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_THAT(logged(), ElementsAre(deniedAt(folder)));
  });
  asUser(Rights::impossible, [this] {
    EXPECT_EQ(
        consoleOf([&] { EXPECT_FALSE(QVFileManager::createDirectory(protected_ + "/a", false)); }),
        "");
  });
}

TEST_F(QVFileManagerDirectoriesTest, TheSuperusersFallBackStartsTheToolAndTheWaitTellsTheOutcome) {
  const std::string file = sandbox_.makeFile("file", "kept");
  asSuperuser([&file] {
    EXPECT_TRUE(QVFileManager::createDirectory(file + "/a"));
    EXPECT_FALSE(QVFileManager::createDirectory(file + "/a", seconds(1)));
  });
  const std::string line = "Error creating folder: " + file + "/a: Not a directory. Authorizing...";
  EXPECT_THAT(logged(), ElementsAre(line, line));
  EXPECT_EQ(test::readFile(file), "kept");
}

TEST_F(QVFileManagerDirectoriesTest, NothingIsMadeForADriveThatIsNotMounted) {
  const std::string folder = "/Volumes/Gone of a test/x";
  asSuperuser([&folder] {
    EXPECT_EQ(consoleOf([&folder] {
                EXPECT_FALSE(QVFileManager::createDirectory(folder));
                EXPECT_FALSE(QVFileManager::createDirectory(folder, seconds(60)));
              }),
              "mountpoint: //Volumes/Gone of a test\n"
              "Unable to create directory. Drive is not mounted.\n"
              "mountpoint: //Volumes/Gone of a test\n"
              "Unable to create directory. Drive is not mounted.\n");
    EXPECT_FALSE(fs::exists("/Volumes/Gone of a test"));
  });
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(QVFileManagerDirectoriesTest, AFolderIsMadeOnAMountedDrive) {
  sandbox_.makeDirectory("Volumes/Disk");
  EXPECT_EXIT(
      {
        const bool made = ::chroot(sandbox_.root().c_str()) == 0 &&
                          QVFileManager::createDirectory("/Volumes/Disk/x", false);
        std::_Exit(made ? 0 : 1);
      },
      testing::ExitedWithCode(0), "mountpoint: //Volumes/Disk\n");
  EXPECT_TRUE(fs::is_directory(sandbox_.path("Volumes/Disk/x")));
}

TEST_F(QVFileManagerDirectoriesTest, NoPathAndARelativeOneAreRefused) {
  fs::current_path(sandbox_.root());
  asSuperuser([] {
    for (const QVFileManager::Path& path :
         {QVFileManager::Path(), QVFileManager::Path(""), QVFileManager::Path("relative")}) {
      EXPECT_FALSE(QVFileManager::createDirectory(path)) << path.value_or("none");
      EXPECT_FALSE(QVFileManager::createDirectory(path, seconds(60))) << path.value_or("none");
    }
  });
  EXPECT_FALSE(fs::exists(sandbox_.path("relative")));
}

TEST_F(QVFileManagerDirectoriesTest, TheStructureOfAFolderIsItsWholePath) {
  const std::string folder = sandbox_.makeDirectory("a/b");
  const std::string to = sandbox_.makeDirectory("to");
  EXPECT_EQ(QVFileManager::createDirectoryStructure(folder, to), to + folder);
  EXPECT_TRUE(fs::is_directory(to + folder));
}

TEST_F(QVFileManagerDirectoriesTest, TheStructureOfAnythingElseIsThatOfTheFolderAroundIt) {
  const std::string to = sandbox_.makeDirectory("to");
  for (const std::string& path : {sandbox_.makeFile("a/file"), sandbox_.makeDirectory("b/A.app"),
                                  sandbox_.path("c/missing")}) {
    const std::string made = to + fs::path(path).parent_path().string();
    EXPECT_EQ(QVFileManager::createDirectoryStructure(path, to), made);
    EXPECT_TRUE(fs::is_directory(made));
  }
}

TEST_F(QVFileManagerDirectoriesTest, AStructureThatCannotBeMadeIsAnsweredAllTheSame) {
  asUser(Rights::impossible, [this] {
    EXPECT_EQ(QVFileManager::createDirectoryStructure("/usr", protected_), protected_ + "/usr");
    EXPECT_FALSE(fs::exists(protected_ + "/usr"));
  });
}

TEST_F(QVFileManagerDirectoriesTest, AStructureIsMadeWithAdministratorRightsToo) {
  asUser(Rights::granted, [this] {
    EXPECT_EQ(QVFileManager::createDirectoryStructure("/usr", protected_), protected_ + "/usr");
    EXPECT_TRUE(test::waitFor([this] { return fs::is_directory(protected_ + "/usr"); }));
  });
}

TEST_F(QVFileManagerDirectoriesTest, WhatIsInTheStructuresPlaceIsLeftAloneInSilence) {
  const std::string taken = sandbox_.makeFile("to/usr", "kept");
  asUser(Rights::granted, [&] {
    EXPECT_EQ(QVFileManager::createDirectoryStructure("/usr", sandbox_.path("to")), taken);
    EXPECT_EQ(test::readFile(taken), "kept");
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerDirectoriesTest, NothingIsMadeBelowNoDestination) {
  EXPECT_EQ(QVFileManager::createDirectoryStructure(sandbox_.path("a/missing"), ""), "");
  EXPECT_FALSE(fs::exists(sandbox_.path("a")));
}

}  // namespace
