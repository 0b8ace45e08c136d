#include "Shared/QVLocalPaths.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>

#include "tests/support/Sandbox.h"

namespace {

using test::Sandbox;
using testing::MatchesRegex;

// As an ordinary user, with a home in the sandbox.
class QVLocalPathsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
    sandbox.becomeUser(Sandbox::kOtherUser);
  }
  Sandbox sandbox;
};

TEST_F(QVLocalPathsTest, TheUsersFoldersAreInTheHome) {
  const std::string home = sandbox.home();
  EXPECT_EQ(QVLocalPaths::userDirectory(), home);
  EXPECT_EQ(QVLocalPaths::applicationDirectory(true), home + "/Applications");
  EXPECT_EQ(QVLocalPaths::adminApplicationDirectory(true), home + "/Applications/Utilities");
  EXPECT_EQ(QVLocalPaths::documentDirectory(true), home + "/Documents");
  EXPECT_EQ(QVLocalPaths::libraryDirectory(true), home + "/Library");
  EXPECT_EQ(QVLocalPaths::prefsDirectory(true), home + "/Library/Preferences");
  EXPECT_EQ(QVLocalPaths::cacheDirectory(true), home + "/Library/Caches");
  EXPECT_EQ(QVLocalPaths::appSupportDirectory(true), home + "/Library/Application Support");
  EXPECT_EQ(QVLocalPaths::movieDirectory(), home + "/Videos");
  EXPECT_EQ(QVLocalPaths::desktopDirectory(), home + "/Desktop");
  EXPECT_EQ(QVLocalPaths::logDirectory(true), home + "/Library/Logs");
  EXPECT_EQ(QVLocalPaths::trashDirectory(), home + "/.Trash");
  EXPECT_EQ(QVLocalPaths::darwinCacheDirectory(), home + "/.cache");
}

TEST_F(QVLocalPathsTest, TheMachinesFoldersAreInTheLocalDomain) {
  EXPECT_EQ(QVLocalPaths::applicationDirectory(false), "/opt");
  EXPECT_EQ(QVLocalPaths::adminApplicationDirectory(false), "/opt/Utilities");
  EXPECT_EQ(QVLocalPaths::documentDirectory(false), std::nullopt);
  EXPECT_EQ(QVLocalPaths::libraryDirectory(false), "/var/lib/quorvale/Library");
  EXPECT_EQ(QVLocalPaths::prefsDirectory(false), "/var/lib/quorvale/Library/Preferences");
  EXPECT_EQ(QVLocalPaths::cacheDirectory(false), "/var/lib/quorvale/Library/Caches");
  EXPECT_EQ(QVLocalPaths::appSupportDirectory(false),
            "/var/lib/quorvale/Library/Application Support");
  EXPECT_EQ(QVLocalPaths::logDirectory(false), "/var/lib/quorvale/Library/Logs");
  EXPECT_EQ(QVLocalPaths::localDocumentationDirectory(), "/usr/local/share/doc");
  EXPECT_EQ(QVLocalPaths::systemLibraryDirectory(), "/System/Library");
}

TEST_F(QVLocalPathsTest, AKindThatADomainDoesNotKnowGivesNone) {
  using Directory = QVLocalPaths::Directory;
  using DomainMask = QVLocalPaths::DomainMask;
  EXPECT_EQ(QVLocalPaths::pathForDirectory(Directory::desktop, DomainMask::local), std::nullopt);
  EXPECT_EQ(QVLocalPaths::pathForDirectory(Directory::caches, DomainMask::system), std::nullopt);
  EXPECT_EQ(QVLocalPaths::pathForDirectory(Directory::documentation, DomainMask::user),
            std::nullopt);
}

TEST_F(QVLocalPathsTest, TheTemporaryFolderIsTheEnvironments) {
  EXPECT_EQ(QVLocalPaths::tempDirectory(), sandbox.path("tmp"));
  ::setenv("TMPDIR", "relative", 1);
  EXPECT_EQ(QVLocalPaths::tempDirectory(), "/tmp");
  ::unsetenv("TMPDIR");
  EXPECT_EQ(QVLocalPaths::tempDirectory(), "/tmp");
}

TEST_F(QVLocalPathsTest, ATempFileIsAUniqueNameInTheTemporaryFolderAndNotMade) {
  const std::string first = QVLocalPaths::tempFile();
  EXPECT_THAT(first.substr(0, sandbox.path("tmp/").size()), sandbox.path("tmp/"));
  EXPECT_THAT(first.substr(sandbox.path("tmp/").size()),
              MatchesRegex("[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}[a-z0-9]{8}"));
  EXPECT_NE(first, QVLocalPaths::tempFile());
  EXPECT_FALSE(std::filesystem::exists(first));
}

TEST_F(QVLocalPathsTest, EveryUuidIsAnother) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) seen.insert(QVLocalPaths::uuid());
  EXPECT_EQ(seen.size(), 1000U);
  EXPECT_EQ(seen.begin()->size(), 36U);
}

TEST_F(QVLocalPathsTest, ARandomStringHasTheLengthAskedFor) {
  EXPECT_EQ(QVLocalPaths::randomString(0), "");
  EXPECT_EQ(QVLocalPaths::randomString(-1), "");
  EXPECT_THAT(QVLocalPaths::randomString(8), MatchesRegex("[a-z0-9]{8}"));
  EXPECT_EQ(QVLocalPaths::randomString(1000).size(), 1000U);
}

TEST_F(QVLocalPathsTest, RandomStringsUseTheWholeAlphabet) {
  const std::string drawn = QVLocalPaths::randomString(20000);
  EXPECT_EQ(std::set<char>(drawn.begin(), drawn.end()).size(), 36U);
}

TEST_F(QVLocalPathsTest, TheUsernameIsTheUserDatabases) {
  ::setenv("USER", "mallory", 1);
  ::setenv("LOGNAME", "mallory", 1);
  EXPECT_EQ(QVLocalPaths::username(), Sandbox::kOtherUser);
}

}  // namespace
