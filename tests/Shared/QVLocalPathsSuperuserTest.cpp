#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "Shared/QVLocalPaths.h"
#include "tests/support/Sandbox.h"

namespace {

using test::Sandbox;

// Run by the superuser, with anna at the console.
class QVLocalPathsSuperuserTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
    sandbox.setConsoleUser(Sandbox::kConsoleUser);
    anna = sandbox.homeOf(Sandbox::kConsoleUser);
  }
  // Moves the superuser's home in the user database.
  void setSuperuserHome(const std::string& home) const {
    sandbox.makeFile("etc/passwd", "root:x:0:0::" + home + ":/bin/sh\nanna:x:61001:61001::" + anna +
                                       ":/bin/sh\n");
  }
  void setDesktop(const std::string& value) const {
    sandbox.makeFile("home/anna/.config/user-dirs.dirs", "XDG_DESKTOP_DIR=\"" + value + "\"\n");
  }
  Sandbox sandbox;
  std::string anna;
};

TEST_F(QVLocalPathsSuperuserTest, TheUsersFoldersAreTheConsoleUsers) {
  EXPECT_EQ(QVLocalPaths::userDirectory(), anna);
  EXPECT_EQ(QVLocalPaths::applicationDirectory(true), anna + "/Applications");
  EXPECT_EQ(QVLocalPaths::adminApplicationDirectory(true), anna + "/Applications/Utilities");
  EXPECT_EQ(QVLocalPaths::documentDirectory(true), anna + "/Documents");
  EXPECT_EQ(QVLocalPaths::libraryDirectory(true), anna + "/Library");
  EXPECT_EQ(QVLocalPaths::prefsDirectory(true), anna + "/Library/Preferences");
  EXPECT_EQ(QVLocalPaths::cacheDirectory(true), anna + "/Library/Caches");
  EXPECT_EQ(QVLocalPaths::appSupportDirectory(true), anna + "/Library/Application Support");
  EXPECT_EQ(QVLocalPaths::movieDirectory(), anna + "/Videos");
  EXPECT_EQ(QVLocalPaths::desktopDirectory(), anna + "/Desktop");
  EXPECT_EQ(QVLocalPaths::logDirectory(true), anna + "/Library/Logs");
  EXPECT_EQ(QVLocalPaths::trashDirectory(), anna + "/.Trash");
}

TEST_F(QVLocalPathsSuperuserTest, TheUserIsTheConsoleUser) {
  EXPECT_EQ(QVLocalPaths::username(), Sandbox::kConsoleUser);
  EXPECT_EQ(QVLocalPaths::currentConsoleUser(), Sandbox::kConsoleUser);
}

TEST_F(QVLocalPathsSuperuserTest, TheMachinesFoldersAreUnaffected) {
  EXPECT_EQ(QVLocalPaths::libraryDirectory(false), "/var/lib/quorvale/Library");
  EXPECT_EQ(QVLocalPaths::applicationDirectory(false), "/opt");
  EXPECT_EQ(QVLocalPaths::systemLibraryDirectory(), "/System/Library");
  EXPECT_EQ(QVLocalPaths::darwinCacheDirectory(), "/root/.cache");
}

TEST_F(QVLocalPathsSuperuserTest, TheSuperusersHomeIsDroppedWhateverTheEnvironmentSays) {
  for (const char* home : {"/elsewhere", "/var/root", "/", ""}) {
    ::setenv("HOME", home, 1);
    EXPECT_EQ(QVLocalPaths::libraryDirectory(true), anna + "/Library") << home;
  }
  ::unsetenv("HOME");
  EXPECT_EQ(QVLocalPaths::libraryDirectory(true), anna + "/Library");
}

TEST_F(QVLocalPathsSuperuserTest, WithNobodyAtTheConsoleTheUserHasNoFolders) {
  sandbox.setNobodyAtConsole();
  EXPECT_EQ(QVLocalPaths::userDirectory(), std::nullopt);
  EXPECT_EQ(QVLocalPaths::username(), std::nullopt);
  EXPECT_EQ(QVLocalPaths::currentConsoleUser(), std::nullopt);
  EXPECT_EQ(QVLocalPaths::applicationDirectory(true), std::nullopt);
  EXPECT_EQ(QVLocalPaths::documentDirectory(true), std::nullopt);
  EXPECT_EQ(QVLocalPaths::libraryDirectory(true), std::nullopt);
  EXPECT_EQ(QVLocalPaths::prefsDirectory(true), std::nullopt);
  EXPECT_EQ(QVLocalPaths::logDirectory(true), std::nullopt);
  EXPECT_EQ(QVLocalPaths::desktopDirectory(), std::nullopt);
  EXPECT_EQ(QVLocalPaths::movieDirectory(), std::nullopt);
  EXPECT_EQ(QVLocalPaths::trashDirectory(), std::nullopt);
  EXPECT_EQ(QVLocalPaths::logDirectory(false), "/var/lib/quorvale/Library/Logs");
}

TEST_F(QVLocalPathsSuperuserTest, AUserOfTheLoginWindowsNameCountsAsNobody) {
  std::string users = test::readFile("/etc/passwd");
  const std::string name = Sandbox::kConsoleUser;
  users.replace(users.find(name + ":"), name.size(), "loginwindow");
  sandbox.makeFile("etc/passwd", users);
  EXPECT_EQ(QVLocalPaths::currentConsoleUser(), std::nullopt);
  EXPECT_EQ(QVLocalPaths::userDirectory(), std::nullopt);
}

TEST_F(QVLocalPathsSuperuserTest, ALocalisedFolderIsTheConsoleUsersOwn) {
  setDesktop("$HOME/Bureau");
  EXPECT_EQ(QVLocalPaths::desktopDirectory(), anna + "/Bureau");
  setDesktop("$HOME/");
  EXPECT_EQ(QVLocalPaths::desktopDirectory(), anna);
}

TEST_F(QVLocalPathsSuperuserTest, TheLiteralPrefixesAreDroppedBesideTheHome) {
  setSuperuserHome("/var/root");
  EXPECT_EQ(QVLocalPaths::libraryDirectory(true), anna + "/Library");
  setSuperuserHome("/private/var/root");
  EXPECT_EQ(QVLocalPaths::libraryDirectory(true), anna + "/t/Library");
  setSuperuserHome("/srv/root");
  EXPECT_EQ(QVLocalPaths::libraryDirectory(true), anna + "/Library");
}

TEST_F(QVLocalPathsSuperuserTest, OfTheLongerPrefixItsLastLetterStays) {
  setDesktop("$HOME/private/var/root/Desktop");
  EXPECT_EQ(QVLocalPaths::desktopDirectory(), anna + "/t/Desktop");
  setDesktop("$HOME/var/root/Desktop");
  EXPECT_EQ(QVLocalPaths::desktopDirectory(), anna + "/Desktop");
  setDesktop("$HOME/var/root/private/var/root");
  EXPECT_EQ(QVLocalPaths::desktopDirectory(), anna + "/t");
}

TEST_F(QVLocalPathsSuperuserTest, WhoRunsTheProcessIsAskedAnew) {
  ASSERT_EQ(QVLocalPaths::username(), Sandbox::kConsoleUser);
  sandbox.becomeUser(Sandbox::kOtherUser);
  EXPECT_EQ(QVLocalPaths::username(), Sandbox::kOtherUser);
  EXPECT_EQ(QVLocalPaths::libraryDirectory(true), sandbox.homeOf(Sandbox::kOtherUser) + "/Library");
  EXPECT_EQ(QVLocalPaths::currentConsoleUser(), Sandbox::kConsoleUser);
}

}  // namespace
