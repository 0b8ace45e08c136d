#include <gtest/gtest.h>

#include <cstdlib>

#include "Shared/QVLocalPaths.h"
#include "tests/support/Sandbox.h"

namespace {

using test::Sandbox;

constexpr bool kExactMatch = true;

bool isProtected(const std::string& path) {
  return QVLocalPaths::isPathSystemDirectory(path);
}
bool isProtectedExactly(const std::string& path) {
  return QVLocalPaths::isPathSystemDirectory(path, kExactMatch);
}

// As an ordinary user whose home is below none of the protected prefixes.
class QVLocalPathsGuardTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
    sandbox.setConsoleUser(Sandbox::kConsoleUser);
  }
  void beOrdinary() {
    sandbox.becomeUser(Sandbox::kOtherUser);
    ASSERT_FALSE(sandbox.home().starts_with("/var") || sandbox.home().starts_with("/usr"));
  }
  void expectHomeIsProtected(const std::string& home) {
    for (const char* folder :
         {"", "/Applications", "/Applications/Utilities", "/Documents", "/Library",
          "/Library/Preferences", "/Library/Caches", "/Library/Application Support", "/Desktop"}) {
      EXPECT_TRUE(isProtected(home + folder)) << folder;
      EXPECT_TRUE(isProtectedExactly(home + folder)) << folder;
      EXPECT_FALSE(isProtected(home + folder + "x")) << folder;
      EXPECT_FALSE(isProtected(home + folder + "/x")) << folder;
    }
  }
  Sandbox sandbox;
};

TEST_F(QVLocalPathsGuardTest, TheRootIsProtected) {
  EXPECT_TRUE(isProtected("/"));
  EXPECT_TRUE(isProtectedExactly("/"));
}

// Only a home can be as short as that: each path is tried as one that would be protected.
TEST_F(QVLocalPathsGuardTest, WhatIsShorterThanThreeCharactersIsNot) {
  beOrdinary();
  for (const char* home : {"/m", "/é", "/€"}) {
    ::setenv("HOME", home, 1);
    EXPECT_FALSE(isProtected(home)) << home;
    EXPECT_FALSE(isProtectedExactly(home)) << home;
    EXPECT_TRUE(isProtectedExactly(home + std::string("/Library"))) << home;
  }
  for (const std::string path : {"", "a", "//"}) {
    EXPECT_FALSE(isProtected(path)) << path;
    EXPECT_FALSE(isProtectedExactly(path)) << path;
  }
}

TEST_F(QVLocalPathsGuardTest, WhatHasThreeCharactersIs) {
  beOrdinary();
  // An emoji is two UTF-16 units.
  for (const char* home : {"/me", "/éé", "/😀"}) {
    ::setenv("HOME", home, 1);
    EXPECT_TRUE(isProtected(home)) << home;
    EXPECT_TRUE(isProtectedExactly(home)) << home;
  }
}

TEST_F(QVLocalPathsGuardTest, TheUsersFoldersAreProtected) {
  beOrdinary();
  expectHomeIsProtected(sandbox.home());
}

TEST_F(QVLocalPathsGuardTest, AsSuperuserTheConsoleUsersFoldersAreProtected) {
  expectHomeIsProtected(sandbox.homeOf(Sandbox::kConsoleUser));
  EXPECT_FALSE(isProtected("/root/Library"));
  EXPECT_FALSE(isProtected(sandbox.homeOf(Sandbox::kOtherUser)));
}

TEST_F(QVLocalPathsGuardTest, WithNobodyAtTheConsoleTheMachinesFoldersStayProtected) {
  sandbox.setNobodyAtConsole();
  EXPECT_FALSE(isProtected(sandbox.homeOf(Sandbox::kConsoleUser) + "/Library"));
  EXPECT_TRUE(isProtectedExactly("/opt"));
  EXPECT_TRUE(isProtectedExactly("/var/lib/quorvale/Library"));
  EXPECT_FALSE(isProtectedExactly("/var/lib/quorvale"));
}

TEST_F(QVLocalPathsGuardTest, MoviesAndTheTrashAreNot) {
  beOrdinary();
  EXPECT_FALSE(isProtected(sandbox.home() + "/Videos"));
  EXPECT_FALSE(isProtected(sandbox.home() + "/.Trash"));
  EXPECT_FALSE(isProtected(sandbox.home() + "/Library/Logs"));
}

TEST_F(QVLocalPathsGuardTest, TheMachinesFoldersAreProtected) {
  for (const std::string path :
       {"/opt", "/opt/Utilities", "/var/lib/quorvale/Library",
        "/var/lib/quorvale/Library/Preferences", "/var/lib/quorvale/Library/Caches",
        "/var/lib/quorvale/Library/Application Support", "/System/Library", "/usr/local/share/doc",
        "/Users/Shared", "/Volumes"}) {
    EXPECT_TRUE(isProtected(path)) << path;
    EXPECT_TRUE(isProtectedExactly(path)) << path;
  }
}

TEST_F(QVLocalPathsGuardTest, WhatIsBelowThemIsNot) {
  EXPECT_FALSE(isProtected("/opt/Foo.app"));
  EXPECT_FALSE(isProtected("/Volumes/Backup"));
  EXPECT_FALSE(isProtected("/Users/Shared/Foo"));
  EXPECT_FALSE(isProtected("/Users"));
  EXPECT_FALSE(isProtected("/Applications/Foo.app"));
}

TEST_F(QVLocalPathsGuardTest, TheSystemPrefixesProtectEverythingThatBeginsWithThem) {
  for (const std::string path :
       {"/usr", "/usr/lib", "/usr/local/bin", "/var", "/variable", "/var/tmp/x", "/private/var",
        "/private/variable/x", "/System", "/Systemic", "/System/Applications"}) {
    EXPECT_TRUE(isProtected(path)) << path;
    EXPECT_FALSE(isProtectedExactly(path)) << path;
  }
  for (const std::string path : {"/us", "/private", "/private/va", "/Syste", "/home", "usr/lib"}) {
    EXPECT_FALSE(isProtected(path)) << path;
  }
}

TEST_F(QVLocalPathsGuardTest, ATrailingSlashTakesTheCharacterBeforeItAlong) {
  EXPECT_FALSE(isProtected("/usr/"));
  EXPECT_TRUE(isProtected("/usr/local/"));
  EXPECT_FALSE(isProtected("/var/"));
  EXPECT_FALSE(isProtected("/Users/Shared/"));
  EXPECT_FALSE(isProtected("/Volumes/"));
  EXPECT_TRUE(isProtectedExactly("/Users/Shared!/"));
  EXPECT_TRUE(isProtectedExactly("/Volumes//"));
  EXPECT_FALSE(isProtected("///"));
  EXPECT_FALSE(isProtectedExactly("/opt/"));
}

TEST_F(QVLocalPathsGuardTest, ACharacterIsAUtf16UnitAndNoByte) {
  EXPECT_TRUE(isProtectedExactly("/Volumesé/"));
  EXPECT_TRUE(isProtectedExactly("/Volumes€/"));
  EXPECT_TRUE(isProtected("/usré/"));
  // Half of the emoji stays.
  EXPECT_FALSE(isProtectedExactly("/Volumes😀/"));
  EXPECT_TRUE(isProtected("/usr😀/"));
  EXPECT_TRUE(isProtectedExactly("/Volumes\xff/"));
}

TEST_F(QVLocalPathsGuardTest, TextIsComparedAsItIsGiven) {
  EXPECT_FALSE(isProtected("/volumes"));
  EXPECT_FALSE(isProtected("/opt/."));
  EXPECT_FALSE(isProtected("//opt"));
  EXPECT_FALSE(isProtected("/home/../opt"));
  EXPECT_FALSE(isProtected("~/Library"));
  EXPECT_FALSE(isProtected("/USR/lib"));
}

TEST_F(QVLocalPathsGuardTest, ABackupOnAVolumeIsOnATimeMachineVolume) {
  EXPECT_TRUE(QVLocalPaths::isPathOnTimeMachineVolume("/Volumes/TM/Backups.backupdb/mac/2012"));
  EXPECT_TRUE(QVLocalPaths::isPathOnTimeMachineVolume("/Volumes/TM/Backups.backupdb"));
  EXPECT_TRUE(QVLocalPaths::isPathOnTimeMachineVolume("/Volumes/Backups.backupdb/"));
  EXPECT_TRUE(QVLocalPaths::isPathOnTimeMachineVolume("/Volumes//TM//Backups.backupdb//x"));
}

TEST_F(QVLocalPathsGuardTest, WhatOnlyResemblesOneIsNot) {
  EXPECT_FALSE(QVLocalPaths::isPathOnTimeMachineVolume("/Users/x/Backups.backupdb"));
  EXPECT_FALSE(QVLocalPaths::isPathOnTimeMachineVolume("/Volumes/TM/Backups.backupdb.old"));
  EXPECT_FALSE(QVLocalPaths::isPathOnTimeMachineVolume("/Volumes/TM/backups.backupdb"));
  EXPECT_FALSE(QVLocalPaths::isPathOnTimeMachineVolume("/Volumes"));
  EXPECT_FALSE(QVLocalPaths::isPathOnTimeMachineVolume("/Volumes/"));
  EXPECT_FALSE(QVLocalPaths::isPathOnTimeMachineVolume(""));
  EXPECT_FALSE(QVLocalPaths::isPathOnTimeMachineVolume("//Volumes/TM/Backups.backupdb"));
}

}  // namespace
