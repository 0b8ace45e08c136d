#include "platform/Directories.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "tests/support/Sandbox.h"

namespace {

using platform::directories::DomainMask;
using platform::directories::Kind;
using test::Sandbox;
using testing::ElementsAre;
using testing::IsEmpty;
namespace directories = platform::directories;
namespace fs = std::filesystem;

// A machine with nobody at the console, seen by the superuser until a test says otherwise.
class DirectoriesTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
  }
  void makeUserDirs(const std::string& user, const std::string& contents) const {
    sandbox.makeFile("home/" + user + "/.config/user-dirs.dirs", contents);
  }
  std::string desktop() const {
    return directories::searchPaths(Kind::desktop, DomainMask::user).at(0);
  }
  Sandbox sandbox;
};

TEST(DirectoriesNumbersTest, KindsAndDomainsHaveThePlatformsNumbers) {
  const std::pair<Kind, unsigned> kinds[] = {
      {Kind::application, 1},   {Kind::adminApplication, 4},    {Kind::library, 5},
      {Kind::documentation, 8}, {Kind::documents, 9},           {Kind::desktop, 12},
      {Kind::caches, 13},       {Kind::applicationSupport, 14}, {Kind::movies, 17}};
  for (const auto& [kind, number] : kinds) EXPECT_EQ(static_cast<unsigned>(kind), number);
  EXPECT_EQ(static_cast<unsigned>(DomainMask::user), 1U);
  EXPECT_EQ(static_cast<unsigned>(DomainMask::local), 2U);
  EXPECT_EQ(static_cast<unsigned>(DomainMask::system), 8U);
}

TEST_F(DirectoriesTest, TheHomeIsTheEnvironmentsWhenItIsAbsolute) {
  sandbox.becomeUser(Sandbox::kOtherUser);
  ::setenv("HOME", "/elsewhere//", 1);
  EXPECT_EQ(directories::homeDirectory(), "/elsewhere");
  EXPECT_THAT(directories::searchPaths(Kind::library, DomainMask::user),
              ElementsAre("/elsewhere/Library"));
}

TEST_F(DirectoriesTest, TheHomeIsTheUserDatabasesOtherwise) {
  sandbox.becomeUser(Sandbox::kOtherUser);
  const std::string home = sandbox.homeOf(Sandbox::kOtherUser);
  ::setenv("HOME", "relative", 1);
  EXPECT_EQ(directories::homeDirectory(), home);
  ::setenv("HOME", "", 1);
  EXPECT_EQ(directories::homeDirectory(), home);
  ::unsetenv("HOME");
  EXPECT_EQ(directories::homeDirectory(), home);
}

TEST_F(DirectoriesTest, TheSuperusersHomeIsNeverTheEnvironments) {
  ::setenv("HOME", "/elsewhere", 1);
  EXPECT_EQ(directories::homeDirectory(), "/root");
  EXPECT_EQ(directories::superuserHome(), "/root");
  EXPECT_THAT(directories::searchPaths(Kind::caches, DomainMask::user),
              ElementsAre("/root/Library/Caches"));
}

TEST_F(DirectoriesTest, WithoutAnyHomeTheUserDomainHasNoFolders) {
  fs::permissions(sandbox.root(), fs::perms::all);
  sandbox.makeFile("etc/passwd",
                   "root:x:0:0::/root:/bin/sh\nbert:x:61002:61002::relative:/bin/sh\n");
  sandbox.becomeUser(Sandbox::kOtherUser);
  ::unsetenv("HOME");
  ::unsetenv("XDG_CACHE_HOME");
  EXPECT_EQ(directories::homeDirectory(), std::nullopt);
  EXPECT_THAT(directories::searchPaths(Kind::library, DomainMask::user), IsEmpty());
  EXPECT_THAT(directories::searchPaths(Kind::desktop, DomainMask::user), IsEmpty());
  EXPECT_EQ(directories::userCacheDirectory(), std::nullopt);
}

TEST_F(DirectoriesTest, HomesAndNamesComeFromTheUserDatabase) {
  EXPECT_EQ(directories::homeDirectoryForUser("anna"), sandbox.homeOf("anna"));
  EXPECT_EQ(directories::homeDirectoryForUser("nobody knows them"), std::nullopt);
  EXPECT_EQ(directories::homeDirectoryForUser(""), std::nullopt);
  EXPECT_EQ(directories::userName(), "root");
  ::setenv("USER", "mallory", 1);
  sandbox.becomeUser(Sandbox::kOtherUser);
  EXPECT_EQ(directories::userName(), Sandbox::kOtherUser);
}

TEST_F(DirectoriesTest, AUserWithoutAnEntryHasNoName) {
  sandbox.makeFile("etc/passwd", "root:x:0:0::/root:/bin/sh\n");
  sandbox.becomeUser(Sandbox::kOtherUser);
  EXPECT_EQ(directories::userName(), std::nullopt);
}

TEST_F(DirectoriesTest, TheConsoleUserIsTheSeatsActiveOne) {
  EXPECT_EQ(directories::consoleUser(), std::nullopt);
  sandbox.setConsoleUser(Sandbox::kConsoleUser);
  EXPECT_EQ(directories::consoleUser(), Sandbox::kConsoleUser);
  sandbox.setConsoleUser(Sandbox::kOtherUser);
  EXPECT_EQ(directories::consoleUser(), Sandbox::kOtherUser);
  sandbox.setNobodyAtConsole();
  EXPECT_EQ(directories::consoleUser(), std::nullopt);
}

TEST_F(DirectoriesTest, AGreeterCountsAsNobody) {
  sandbox.setConsoleUser(Sandbox::kConsoleUser);
  sandbox.makeFile("run/systemd/sessions/c1", "UID=61001\nCLASS=greeter\nACTIVE=1\n");
  EXPECT_EQ(directories::consoleUser(), std::nullopt);
  sandbox.makeFile("run/systemd/sessions/c1", "UID=61001\nCLASS=user\nACTIVE=1\n");
  EXPECT_EQ(directories::consoleUser(), Sandbox::kConsoleUser);
}

TEST_F(DirectoriesTest, ASeatWhoseUserIsUnknownHasNobody) {
  sandbox.makeFile("run/systemd/seats/seat0", "ACTIVE=c1\nACTIVE_UID=61099\n");
  EXPECT_EQ(directories::consoleUser(), std::nullopt);
  sandbox.makeFile("run/systemd/seats/seat0", "ACTIVE=\nACTIVE_UID=\n");
  EXPECT_EQ(directories::consoleUser(), std::nullopt);
  sandbox.makeFile("run/systemd/seats/seat0", "ACTIVE=c1\nACTIVE_UID=anna\n");
  EXPECT_EQ(directories::consoleUser(), std::nullopt);
}

TEST_F(DirectoriesTest, LocalisedFoldersHaveTheNamesOfThePersonsSettings) {
  sandbox.becomeUser(Sandbox::kOtherUser);
  EXPECT_EQ(desktop(), sandbox.home() + "/Desktop");
  makeUserDirs("bert",
               "# comment\nXDG_DESKTOP_DIR=\"$HOME/Arbeitsfläche\"\n"
               "  XDG_DOCUMENTS_DIR = \"$HOME/Meine \\\"Dokumente\\\"/\"\n"
               "XDG_VIDEOS_DIR=\"/srv/videos\"\n");
  EXPECT_EQ(desktop(), sandbox.home() + "/Arbeitsfläche");
  EXPECT_THAT(directories::searchPaths(Kind::documents, DomainMask::user),
              ElementsAre(sandbox.home() + "/Meine \"Dokumente\""));
  EXPECT_THAT(directories::searchPaths(Kind::movies, DomainMask::user), ElementsAre("/srv/videos"));
}

TEST_F(DirectoriesTest, TheSettingsAreWhereTheEnvironmentSays) {
  sandbox.becomeUser(Sandbox::kOtherUser);
  ::setenv("XDG_CONFIG_HOME", sandbox.path("home/bert/settings").c_str(), 1);
  sandbox.makeFile("home/bert/settings/user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/D\"\n");
  EXPECT_EQ(desktop(), sandbox.home() + "/D");
  ::setenv("XDG_CONFIG_HOME", "settings", 1);
  EXPECT_EQ(desktop(), sandbox.home() + "/Desktop");
}

TEST_F(DirectoriesTest, ASettingsFileThatIsNoFileIsPassedOver) {
  sandbox.becomeUser(Sandbox::kOtherUser);
  sandbox.makeDirectory("home/bert/.config");
  const std::string file = sandbox.home() + "/.config/user-dirs.dirs";
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  EXPECT_EQ(desktop(), sandbox.home() + "/Desktop");
}

TEST_F(DirectoriesTest, AHugeSettingsFileIsPassedOver) {
  sandbox.becomeUser(Sandbox::kOtherUser);
  makeUserDirs("bert", "XDG_DESKTOP_DIR=\"$HOME/D\"\n" + std::string(100'000, '#'));
  EXPECT_EQ(desktop(), sandbox.home() + "/Desktop");
}

TEST_F(DirectoriesTest, TheSuperuserTakesTheConsoleUsersNames) {
  makeUserDirs("anna", "XDG_DESKTOP_DIR=\"$HOME/Bureau\"\n");
  ::setenv("XDG_CONFIG_HOME", sandbox.path("home/bert/.config").c_str(), 1);
  makeUserDirs("bert", "XDG_DESKTOP_DIR=\"$HOME/Wrong\"\n");
  EXPECT_EQ(desktop(), "/root/Desktop");
  sandbox.setConsoleUser(Sandbox::kConsoleUser);
  EXPECT_EQ(desktop(), "/root/Bureau");
}

TEST_F(DirectoriesTest, TheSuperuserTakesNoPathOutOfAHome) {
  sandbox.setConsoleUser(Sandbox::kConsoleUser);
  for (const std::string value :
       {"/etc", "$HOME/../../etc", "$HOME/..", "$HOMEetc", "etc", "$PATH/etc", ""}) {
    makeUserDirs("anna", "XDG_DESKTOP_DIR=\"" + value + "\"\n");
    EXPECT_EQ(desktop(), "/root/Desktop") << value;
  }
}

TEST_F(DirectoriesTest, TheTemporaryFolderHasNoTrailingSlash) {
  ::setenv("TMPDIR", "/var/tmp//", 1);
  EXPECT_EQ(directories::temporaryDirectory(), "/var/tmp");
  ::setenv("TMPDIR", "", 1);
  EXPECT_EQ(directories::temporaryDirectory(), "/tmp");
}

TEST_F(DirectoriesTest, TheCacheFolderIsTheEnvironmentsButNotTheSuperusers) {
  ::setenv("XDG_CACHE_HOME", "/elsewhere", 1);
  EXPECT_EQ(directories::userCacheDirectory(), "/root/.cache");
  sandbox.becomeUser(Sandbox::kOtherUser);
  ::setenv("XDG_CACHE_HOME", "/elsewhere", 1);
  EXPECT_EQ(directories::userCacheDirectory(), "/elsewhere");
  ::setenv("XDG_CACHE_HOME", "elsewhere", 1);
  EXPECT_EQ(directories::userCacheDirectory(), sandbox.home() + "/.cache");
}

}  // namespace
