#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "Shared/QVFileManager.h"
#include "tests/support/ConsoleOf.h"
#include "tests/support/FileChangesFixture.h"
#include "tests/support/ImmutableFlag.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using test::consoleOf;
using test::Sandbox;
using testing::ElementsAre;
using testing::IsEmpty;

class QVFileManagerTrashTest : public test::FileChangesFixture {
 protected:
  static std::string notUnlocked(const std::string& path, const std::string& reason) {
    return "Unable to unlock file " + path + ": " + reason;
  }
};

// --- One item ---

TEST_F(QVFileManagerTrashTest, AMissingItemIsASuccessAfterAFailedUnlock) {
  asUser(Rights::impossible, [this] {
    const std::string missing = inHome("missing");
    EXPECT_TRUE(QVFileManager::trashFile(missing));
    EXPECT_TRUE(QVFileManager::trashFile(missing, false));
    EXPECT_TRUE(QVFileManager::trashFile(missing, seconds(60)));
    const std::string line = notUnlocked(missing, "No such file or directory");
    EXPECT_THAT(logged(), ElementsAre(line, line, line));
  });
}

TEST_F(QVFileManagerTrashTest, ALinkThatLeadsNowhereCountsAsMissing) {
  asUser(Rights::impossible, [this] {
    fs::create_symlink("nowhere", inHome("link"));
    EXPECT_TRUE(QVFileManager::trashFile(inHome("link")));
    EXPECT_TRUE(exists(inHome("link")));
  });
}

TEST_F(QVFileManagerTrashTest, AnItemGoesIntoTheTrashUnderItsOwnName) {
  asUser(Rights::impossible, [this] {
    EXPECT_TRUE(QVFileManager::trashFile(makeFileInHome("a.txt")));
    makeFileInHome("A.app/Contents/x");
    EXPECT_TRUE(QVFileManager::trashFile(inHome("A.app/"), false));
    EXPECT_THAT(namesIn(trash()), ElementsAre("A.app", "a.txt"));
    EXPECT_TRUE(exists(trash() + "/A.app/Contents/x"));
    EXPECT_TRUE(exists(inHome(".local/share/Trash/info/a.txt.trashinfo"))) << "to restore it";
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerTrashTest, WhatTheUserMayNotTakeIsTrashedWithAdministratorRights) {
  const std::string file = sandbox_.makeFile("protected/a.txt", "a");
  asUser(Rights::granted, [&] {
    EXPECT_TRUE(QVFileManager::trashFile(file, seconds(10)));
    EXPECT_EQ(test::readFile(trash() + "/a.txt"), "a");
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerTrashTest, RefusedRightsAreAFailure) {
  const std::string file = sandbox_.makeFile("protected/a.txt");
  asUser(Rights::refused, [&] {
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::trashFile(file)); }), "");
    EXPECT_TRUE(exists(file));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerTrashTest, WithNobodyToAskItFailsWithoutWaiting) {
  const std::string file = sandbox_.makeFile("protected/a.txt");
  asUser(Rights::impossible, [&] {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::trashFile(file, seconds(60))); }),
              kNoAdministrator);
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(10));
    EXPECT_TRUE(exists(file));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerTrashTest, WithoutTheFallBackNoRightsAreAskedFor) {
  const std::string file = sandbox_.makeFile("protected/a.txt");
  asUser(Rights::impossible, [&] {
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::trashFile(file, false)); }), "");
    EXPECT_TRUE(exists(file));
  });
}

TEST_F(QVFileManagerTrashTest, TheSuperuserTrashesWhatIsLockedToThePersonAtTheConsole) {
  const std::string file = sandbox_.makeFile("a.txt");
  const test::ImmutableFlag flag(file);
  if (!flag.isSet()) GTEST_SKIP() << "needs a file system with locks";
  asSuperuser([&] {
    EXPECT_TRUE(QVFileManager::trashFile(file));
    EXPECT_THAT(namesIn(trash()), ElementsAre("a.txt"));
    EXPECT_FALSE(exists(file));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerTrashTest, WhatTheSuperuserHasLockedStaysAndTheWaitSaysSo) {
  const std::string file = makeFileInHome("a.txt");
  const test::ImmutableFlag flag(file);
  if (!flag.isSet()) GTEST_SKIP() << "needs a file system with locks";
  asUser(Rights::granted, [&] {
    EXPECT_TRUE(QVFileManager::trashFile(file)) << "the tool was started";
    EXPECT_FALSE(QVFileManager::trashFile(file, seconds(1)));
    const std::string line = notUnlocked(file, "Operation not permitted");
    EXPECT_THAT(logged(), ElementsAre(line, line));
  });
}

TEST_F(QVFileManagerTrashTest, ATimeOutOfZeroTellsWhetherTheItemIsGoneAlready) {
  const std::string stays = sandbox_.makeFile("readonly/a.txt");
  const std::string goes = sandbox_.makeFile("b.txt");
  makeReadOnly(sandbox_.path("readonly"));
  asSuperuser([&] {
    EXPECT_TRUE(QVFileManager::trashFile(goes, seconds(0)));
    EXPECT_TRUE(QVFileManager::trashFile(stays)) << "the tool was started";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(QVFileManager::trashFile(stays, seconds(0)));
    EXPECT_FALSE(QVFileManager::trashFile(stays, seconds(-1)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(5));
    EXPECT_TRUE(exists(stays));
  });
}

TEST_F(QVFileManagerTrashTest, WithNobodyAtTheConsoleTheSuperuserHasNoTrash) {
  sandbox_.setNobodyAtConsole();
  const std::string file = sandbox_.makeFile("a.txt");
  EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::trashFile(file)); }),
            "Error in authMoveFile: new path is null\n");
  EXPECT_TRUE(exists(file));
}

TEST_F(QVFileManagerTrashTest, WhatNamesNoItemIsRefused) {
  const std::string kept = sandbox_.makeFile("folder/kept");
  sandbox_.makeFile("home/anna/.Trash/old");
  fs::current_path(sandbox_.root());
  asSuperuser([&] {
    EXPECT_EQ(consoleOf([&] {
                for (const QVFileManager::Path& path : pathsThatNameNoItem(kept)) {
                  EXPECT_FALSE(QVFileManager::trashFile(path)) << path.value_or("none");
                  EXPECT_FALSE(QVFileManager::trashFile(path, seconds(60)));
                }
              }),
              "");
    EXPECT_TRUE(exists(kept));
    EXPECT_THAT(namesIn(trash()), ElementsAre("old"));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

// --- Many items ---

// A folder of everybody's, from which only an item's owner may take it.
TEST_F(QVFileManagerTrashTest, EveryEntryOfAFolderIsAttemptedThoughOneFails) {
  const std::string shared = sandbox_.makeDirectory("shared");
  fs::permissions(shared, fs::perms::all | fs::perms::sticky_bit);
  for (const char* name : {".hidden", "a", "c"}) {
    giveToUser(sandbox_.makeFile(std::string("shared/") + name));
  }
  sandbox_.makeFile("shared/b of others");
  asUser(Rights::impossible, [&] {
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::trashDirectoryContents(shared)); }),
              kNoAdministrator);
    EXPECT_THAT(namesIn(shared), ElementsAre("b of others"));
    EXPECT_THAT(namesIn(trash()), ElementsAre(".hidden", "a", "c"));
    EXPECT_EQ(
        consoleOf([&] { EXPECT_FALSE(QVFileManager::trashDirectoryContents(shared, false)); }), "");
  });
  asUser(Rights::granted, [&] {
    EXPECT_TRUE(QVFileManager::trashDirectoryContents(shared));
    EXPECT_TRUE(test::waitFor([&] { return namesIn(shared).empty(); }));
    EXPECT_TRUE(exists(shared));
  });
}

TEST_F(QVFileManagerTrashTest, AnEmptyOrUnreadableFolderHasNothingToTrash) {
  sandbox_.makeFile("closed/a");
  fs::permissions(sandbox_.path("closed"), fs::perms::none);
  asUser(Rights::impossible, [this] {
    fs::create_directory(inHome("empty"));
    EXPECT_TRUE(QVFileManager::trashDirectoryContents(inHome("empty")));
    EXPECT_TRUE(QVFileManager::trashDirectoryContents(sandbox_.path("closed")));
    EXPECT_TRUE(QVFileManager::trashDirectoryContents(inHome("missing")));
    EXPECT_TRUE(exists(inHome("empty")));
  });
}

TEST_F(QVFileManagerTrashTest, FilesOfATypeAreFoundAtEveryDepthAndInsideOfPackagesOfThatName) {
  asUser(Rights::impossible, [this] {
    for (const char* name : {"f/A.app/Contents/c.app", "f/b.App", "f/in/d.APP", "f/app", "f/.app",
                             "f/e.apps", "f/g.app.txt"}) {
      makeFileInHome(name);
    }
    EXPECT_THAT(
        QVFileManager::trashFilesOfType("APP", inHome("f")),
        ElementsAre(inHome("f/A.app/Contents/c.app"), inHome("f/b.App"), inHome("f/in/d.APP")));
    EXPECT_THAT(namesIn(inHome("f")),
                ElementsAre(".app", "A.app", "app", "e.apps", "g.app.txt", "in"));
    EXPECT_THAT(namesIn(trash()), ElementsAre("b.App", "c.app", "d.APP"));
  });
}

TEST_F(QVFileManagerTrashTest, TypesAreComparedByUnicodesLowerCase) {
  asUser(Rights::impossible, [this] {
    const std::string file = makeFileInHome("f/x.\u00c4\u0416");
    EXPECT_THAT(QVFileManager::trashFilesOfType("\u00e4\u0436", inHome("f")), ElementsAre(file));
    EXPECT_FALSE(exists(file));
  });
}

TEST_F(QVFileManagerTrashTest, FilesOfANameAreFoundInItsLetterCaseOnly) {
  asUser(Rights::impossible, [this] {
    for (const char* name : {"f/core", "f/Core", "f/core.txt", "f/in/core/core"})
      makeFileInHome(name);
    EXPECT_THAT(QVFileManager::trashFilesNamed("core", inHome("f")),
                ElementsAre(inHome("f/core"), inHome("f/in/core/core")));
    EXPECT_THAT(namesIn(inHome("f")), ElementsAre("Core", "core.txt", "in"));
    EXPECT_THAT(namesIn(inHome("f/in")), ElementsAre("core")) << "a folder is never trashed";
  });
}

TEST_F(QVFileManagerTrashTest, WhatCouldNotBeTrashedIsListedToo) {
  const std::string log = sandbox_.makeFile("protected/a.log");
  const std::string core = sandbox_.makeFile("protected/in/core");
  asUser(Rights::impossible, [&] {
    EXPECT_THAT(QVFileManager::trashFilesOfType("log", protected_), ElementsAre(log));
    EXPECT_THAT(QVFileManager::trashFilesNamed("core", protected_), ElementsAre(core));
    EXPECT_TRUE(exists(log) && exists(core));
  });
}

TEST_F(QVFileManagerTrashTest, ALoopOfLinksEnds) {
  asUser(Rights::impossible, [this] {
    const std::string file = makeFileInHome("f/in/a.log");
    fs::create_directory_symlink("..", inHome("f/in/up"));
    EXPECT_THAT(QVFileManager::trashFilesOfType("log", inHome("f")), ElementsAre(file));
    makeFileInHome("f/in/a.log");
    EXPECT_THAT(QVFileManager::trashFilesNamed("a.log", inHome("f")), ElementsAre(file));
  });
}

TEST_F(QVFileManagerTrashTest, WhereNothingMatchesNothingIsListed) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("f/a.txt");
    for (const std::string& folder : {inHome("f"), inHome("missing"), std::string()}) {
      EXPECT_THAT(QVFileManager::trashFilesOfType("log", folder), IsEmpty());
      EXPECT_THAT(QVFileManager::trashFilesNamed("", folder), IsEmpty());
    }
    EXPECT_TRUE(exists(inHome("f/a.txt")));
  });
}

}  // namespace
