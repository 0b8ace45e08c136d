#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "Shared/QVFileManager.h"
#include "tests/support/ConsoleOf.h"
#include "tests/support/FileChangesFixture.h"
#include "tests/support/ImmutableFlag.h"
#include "tests/support/TreeDescription.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using test::consoleOf;
using test::readFile;
using test::waitFor;
using testing::ElementsAre;
using testing::IsEmpty;

class QVFileManagerCopyTest : public test::FileChangesFixture {
 protected:
  static std::string failed(const std::string& path, const std::string& reason) {
    return "Error copying file: " + path + ": " + reason + ". Authorizing...";
  }
};

// --- One item ---

TEST_F(QVFileManagerCopyTest, AnItemIsCopiedWithAllThatIsInIt) {
  asUser(Rights::impossible, [this] {
    const std::string source = inHome("A.app");
    makeFileInHome("A.app/Contents/x", "x");
    fs::create_directory(source + "/empty");
    fs::create_symlink("Contents/x", source + "/link");
    EXPECT_TRUE(QVFileManager::copyFile(source, inHome("B.app")));
    EXPECT_TRUE(QVFileManager::copyFile(source, inHome("C.app"), false));
    EXPECT_TRUE(QVFileManager::copyFile(source, inHome("D.app"), seconds(60)));
    for (const char* copy : {"B.app", "C.app", "D.app"}) {
      EXPECT_EQ(test::describeTree(inHome(copy)), test::describeTree(source)) << copy;
    }
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerCopyTest, NoSourceAndNoDestinationAreLoggedAndPrinted) {
  asUser(Rights::impossible, [this] {
    testing::internal::CaptureStdout();
    EXPECT_FALSE(QVFileManager::copyFile(std::nullopt, inHome("b")));
    EXPECT_FALSE(QVFileManager::copyFile(inHome("a"), std::nullopt, false));
    EXPECT_FALSE(QVFileManager::copyFile(std::nullopt, std::nullopt, seconds(60)));
    const std::string noSource = "Error copying file: source path is nil";
    const std::string noDestination =
        "Error copying file " + inHome("a") + ": destination path is nil";
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              noSource + "\n" + noDestination + "\n" + noSource + "\n");
    EXPECT_THAT(logged(), ElementsAre(noSource, noDestination, noSource));
  });
}

TEST_F(QVFileManagerCopyTest, WhatIsThereAlreadyIsReplacedWithAdministratorRightsOnly) {
  const std::string source = sandbox_.makeFile("a.txt", "new");
  const std::string destination = sandbox_.makeFile("protected/b.txt", "old");
  const std::string line = failed(destination, "File exists");
  asUser(Rights::granted, [&] {
    EXPECT_FALSE(QVFileManager::copyFile(source, destination, false));
    EXPECT_EQ(readFile(destination), "old");
    EXPECT_TRUE(QVFileManager::copyFile(source, destination));
    EXPECT_TRUE(waitFor([&] { return readFile(destination) == "new"; }));
    EXPECT_THAT(logged(), ElementsAre(line, line));
  });
}

TEST_F(QVFileManagerCopyTest, WhatIsThereAlreadyIsNotUnlocked) {
  const std::string source = sandbox_.makeFile("a.txt", "new");
  const std::string destination = sandbox_.makeFile("b.txt", "old");
  const test::ImmutableFlag flag(destination);
  if (!flag.isSet()) GTEST_SKIP() << "needs a file system with locks";
  asSuperuser([&] {
    EXPECT_FALSE(QVFileManager::copyFile(source, destination, false));
    EXPECT_TRUE(QVFileManager::isFileLocked(destination));
  });
}

TEST_F(QVFileManagerCopyTest, WhereTheUserMayNotWriteItIsCopiedWithAdministratorRights) {
  const std::string source = sandbox_.makeFile("a.txt", "a");
  const std::string destination = protected_ + "/a.txt";
  asUser(Rights::granted, [&] {
    EXPECT_TRUE(QVFileManager::copyFile(source, destination, seconds(10)));
    EXPECT_TRUE(waitFor([&] { return readFile(destination) == "a"; }));
    EXPECT_THAT(logged(), ElementsAre(failed(destination, "Permission denied")));
  });
}

TEST_F(QVFileManagerCopyTest, RefusedRightsAreAFailure) {
  const std::string source = sandbox_.makeFile("a.txt", "a");
  const std::string destination = protected_ + "/a.txt";
  asUser(Rights::refused, [&] {
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::copyFile(source, destination)); }), "");
    EXPECT_THAT(namesIn(protected_), IsEmpty());
    EXPECT_THAT(logged(), ElementsAre(failed(destination, "Permission denied")));
  });
}

TEST_F(QVFileManagerCopyTest, WithNobodyToAskItFailsWithoutWaiting) {
  const std::string source = sandbox_.makeFile("a.txt", "a");
  const std::string destination = protected_ + "/a.txt";
  asUser(Rights::impossible, [&] {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(
        consoleOf([&] { EXPECT_FALSE(QVFileManager::copyFile(source, destination, seconds(60))); }),
        kNoAdministrator);
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(10));
    EXPECT_THAT(logged(), ElementsAre(failed(destination, "Permission denied")));
  });
}

TEST_F(QVFileManagerCopyTest, WithoutTheFallBackNoRightsAreAskedForYetAuthorizingIsLogged) {
  const std::string source = sandbox_.makeFile("a.txt", "a");
  const std::string destination = protected_ + "/a.txt";
  asUser(Rights::impossible, [&] {
    EXPECT_EQ(consoleOf([&] { EXPECT_FALSE(QVFileManager::copyFile(source, destination, false)); }),
              "");
    EXPECT_THAT(logged(), ElementsAre(failed(destination, "Permission denied")));
  });
}

TEST_F(QVFileManagerCopyTest, TheFolderOfTheCopyIsUnlockedAndNotMade) {
  const std::string source = sandbox_.makeFile("a.txt", "a");
  const std::string folder = sandbox_.makeDirectory("locked");
  const std::string missing = sandbox_.path("missing");
  asSuperuser([&] {
    EXPECT_FALSE(QVFileManager::copyFile(source, missing + "/a.txt", false));
    EXPECT_FALSE(exists(missing));
    EXPECT_THAT(logged(),
                ElementsAre("Unable to unlock file " + missing + ": No such file or directory",
                            failed(missing + "/a.txt", "No such file or directory")));
    const test::ImmutableFlag flag(folder);
    if (!flag.isSet()) GTEST_SKIP() << "needs a file system with locks";
    EXPECT_TRUE(QVFileManager::copyFile(source, folder + "/a.txt"));
    EXPECT_FALSE(QVFileManager::isFileLocked(folder));
    EXPECT_EQ(readFile(folder + "/a.txt"), "a");
  });
}

TEST_F(QVFileManagerCopyTest, TheSuperusersFallBackStartsTheToolAndTheWaitTellsTheOutcome) {
  const std::string source = sandbox_.makeFile("a.txt", "a");
  const std::string folder = sandbox_.makeDirectory("readonly");
  makeReadOnly(folder);
  asSuperuser([&] {
    EXPECT_TRUE(QVFileManager::copyFile(source, folder + "/a.txt")) << "the tool was started";
    EXPECT_FALSE(QVFileManager::copyFile(source, folder + "/a.txt", seconds(1)));
    const std::string line = failed(folder + "/a.txt", "Read-only file system");
    EXPECT_THAT(logged(), ElementsAre(line, line));
  });
}

TEST_F(QVFileManagerCopyTest, AMissingSourceIsAFailure) {
  const std::string source = sandbox_.path("missing");
  asSuperuser([&] {
    EXPECT_FALSE(QVFileManager::copyFile(source, sandbox_.path("b"), seconds(60)));
    EXPECT_FALSE(exists(sandbox_.path("b")));
    EXPECT_THAT(logged(), ElementsAre(failed(source, "No such file or directory")));
  });
}

TEST_F(QVFileManagerCopyTest, ADestinationThatNamesNoItemIsRefused) {
  const std::string source = sandbox_.makeFile("a.txt", "a");
  sandbox_.makeDirectory("folder");
  fs::current_path(sandbox_.root());
  asSuperuser([&] {
    for (const std::string& destination : {std::string(), std::string("b"), std::string("/"),
                                           sandbox_.path("folder/."), sandbox_.path("folder/..")}) {
      EXPECT_FALSE(QVFileManager::copyFile(source, destination)) << destination;
    }
    EXPECT_FALSE(QVFileManager::copyFile("a.txt", sandbox_.path("b"))) << "a relative source";
    EXPECT_THAT(namesIn(sandbox_.path("folder")), IsEmpty());
    EXPECT_FALSE(exists(sandbox_.path("b")));
  });
}

// --- The contents of a folder ---

TEST_F(QVFileManagerCopyTest, EveryEntryOfAFolderIsCopiedAndLoggedByItsName) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("from/b/in", "in");
    makeFileInHome("from/a", "a");
    makeFileInHome("from/.hidden");
    fs::create_directory(inHome("to"));
    EXPECT_TRUE(QVFileManager::copyContentsOfDirectory(inHome("from"), inHome("to"), seconds(60)));
    EXPECT_THAT(namesIn(inHome("to")), ElementsAre(".hidden", "a", "b"));
    EXPECT_EQ(test::describeTree(inHome("to/b")), test::describeTree(inHome("from/b")));
    EXPECT_THAT(logged(), ElementsAre("File: .hidden", "File: a", "File: b"));
  });
}

TEST_F(QVFileManagerCopyTest, TheFirstFailureEndsItAndNothingIsUndone) {
  asUser(Rights::impossible, [this] {
    for (const char* name : {"from/a", "from/b", "from/c"}) makeFileInHome(name, "new");
    const std::string taken = makeFileInHome("to/b", "old");
    EXPECT_EQ(consoleOf([&] {
                EXPECT_FALSE(QVFileManager::copyContentsOfDirectory(inHome("from"), inHome("to"),
                                                                    seconds(60)));
              }),
              kNoAdministrator);
    EXPECT_THAT(namesIn(inHome("to")), ElementsAre("a", "b"));
    EXPECT_EQ(readFile(taken), "old");
    EXPECT_THAT(logged(), ElementsAre("File: a", "File: b", failed(taken, "File exists")));
  });
}

TEST_F(QVFileManagerCopyTest, EachEntryWaitsForItself) {
  sandbox_.makeFile("from/a");
  sandbox_.makeFile("from/b");
  const std::string folder = sandbox_.makeDirectory("readonly");
  makeReadOnly(folder);
  asSuperuser([&] {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(QVFileManager::copyContentsOfDirectory(sandbox_.path("from"), folder, seconds(1)));
    EXPECT_GE(std::chrono::steady_clock::now() - start, seconds(1));
    EXPECT_THAT(logged(), ElementsAre("File: a", failed(folder + "/a", "Read-only file system")));
  });
}

TEST_F(QVFileManagerCopyTest, AnEmptyOrMissingFolderHasNothingToCopy) {
  asUser(Rights::impossible, [this] {
    fs::create_directory(inHome("empty"));
    for (const std::string& folder : {inHome("empty"), inHome("missing"), std::string()}) {
      EXPECT_TRUE(QVFileManager::copyContentsOfDirectory(folder, inHome("to"), seconds(0)));
    }
    EXPECT_FALSE(exists(inHome("to")));
    EXPECT_THAT(logged(), IsEmpty());
  });
}

TEST_F(QVFileManagerCopyTest, IntoAFolderThatIsMissingNothingIsCopied) {
  asUser(Rights::impossible, [this] {
    makeFileInHome("from/a");
    EXPECT_FALSE(QVFileManager::copyContentsOfDirectory(inHome("from"), inHome("to"), seconds(0)));
    EXPECT_FALSE(exists(inHome("to")));
  });
}

}  // namespace
