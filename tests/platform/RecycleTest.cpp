#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "platform/FileSystem.h"
#include "platform/Workspace.h"
#include "tests/support/ConsoleOf.h"
#include "tests/support/LoopImage.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TreeDescription.h"

namespace {

namespace fs = platform::file_system;
using platform::workspace::recycle;
using std::filesystem::create_symlink;
using test::describeTree;
using test::makeHostileTree;
using test::readFile;
using test::Sandbox;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::Optional;

class RecycleTest : public testing::Test {
 protected:
  std::string trash() const { return sandbox_.home() + "/.Trash"; }
  std::string homeTrash() const { return sandbox_.home() + "/.local/share/Trash"; }
  std::string applications() const { return sandbox_.path("Applications"); }
  std::string information(const std::string& name) const {
    return readFile(homeTrash() + "/info/" + name + ".trashinfo");
  }
  void becomeSuperuserWithConsoleUser() {
    sandbox_.simulateMachine();
    sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  }

  Sandbox sandbox_;
};

// Takes the last block of the file system that `path` is on.
void fill(const std::string& path) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const std::string block(1024, 'x');
  while (::write(file, block.data(), block.size()) > 0) {
  }
  ::close(file);
}

unsigned permissionsOf(const std::string& path) {
  return fs::attributes(path)->permissions;
}

TEST_F(RecycleTest, ABundleGoesThroughTheDoorIntoTheHomeTrashWithItsInformation) {
  sandbox_.makeFile("Applications/A.app/Contents/file", "x");
  ASSERT_TRUE(recycle(applications(), trash(), {"A.app"}));
  EXPECT_FALSE(fs::exists(applications() + "/A.app"));
  EXPECT_EQ(readFile(homeTrash() + "/files/A.app/Contents/file"), "x");
  EXPECT_EQ(readFile(trash() + "/A.app/Contents/file"), "x");
  EXPECT_THAT(information("A.app"),
              MatchesRegex("\\[Trash Info\\]\nPath=" + applications() +
                           "/A.app\nDeletionDate=20[0-9][0-9]-[0-1][0-9]-[0-3][0-9]T[0-2][0-9]:"
                           "[0-5][0-9]:[0-5][0-9]\n"));
  for (const char* folder : {"", "/files", "/info"}) {
    EXPECT_EQ(permissionsOf(homeTrash() + folder), 0700U) << folder;
  }
}

TEST_F(RecycleTest, TheOriginalPathIsEncodedForOneLine) {
  sandbox_.makeFile("Applications/new\nline 100% \xFF.app");
  ASSERT_TRUE(recycle(applications(), trash(), {"new\nline 100% \xFF.app"}));
  EXPECT_THAT(information("new\nline 100% \xFF.app"),
              testing::HasSubstr("\nPath=" + applications() + "/new%0Aline%20100%25%20%FF.app\n"));
}

TEST_F(RecycleTest, ATakenNameGetsANumberBeforeItsExtension) {
  for (int i = 0; i < 3; ++i) {
    sandbox_.makeFile("Applications/A.app/file", std::to_string(i));
    ASSERT_TRUE(recycle(applications(), trash(), {"A.app"}));
  }
  EXPECT_EQ(readFile(trash() + "/A.app/file"), "0");
  EXPECT_EQ(readFile(trash() + "/A 2.app/file"), "1");
  EXPECT_EQ(readFile(trash() + "/A 3.app/file"), "2");
  EXPECT_THAT(information("A 3.app"), testing::HasSubstr("/Applications/A.app\n"));
  EXPECT_THAT(fs::list(homeTrash() + "/info"),
              Optional(ElementsAre("A 2.app.trashinfo", "A 3.app.trashinfo", "A.app.trashinfo")));
}

TEST_F(RecycleTest, ANameThatIsTakenByAnItemOrByInformationAloneIsNotUsed) {
  std::filesystem::create_directories(homeTrash() + "/files/A.app");
  std::filesystem::create_directories(homeTrash() + "/info/A 2.app.trashinfo");
  sandbox_.makeFile("Applications/A.app/file", "x");
  ASSERT_TRUE(recycle(applications(), trash(), {"A.app"}));
  EXPECT_EQ(readFile(trash() + "/A 3.app/file"), "x");
  EXPECT_THAT(fs::list(homeTrash() + "/info"),
              Optional(ElementsAre("A 2.app.trashinfo", "A 3.app.trashinfo")));
}

TEST_F(RecycleTest, ALinkIsRecycledItself) {
  sandbox_.makeFile("kept/file", "x");
  sandbox_.makeDirectory("Applications");
  create_symlink(sandbox_.path("kept"), applications() + "/link");
  create_symlink("nowhere", applications() + "/dangling");
  ASSERT_TRUE(recycle(applications(), trash(), {"link", "dangling"}));
  EXPECT_THAT(fs::symbolicLinkTarget(trash() + "/link"), Optional(sandbox_.path("kept")));
  EXPECT_EQ(readFile(sandbox_.path("kept/file")), "x");
}

TEST_F(RecycleTest, ARealFolderInTheDoorsPlaceTakesTheItemsWithoutInformation) {
  std::filesystem::create_directory(trash());
  sandbox_.makeFile("Applications/A.app", "1");
  ASSERT_TRUE(recycle(applications(), trash(), {"A.app"}));
  sandbox_.makeFile("Applications/A.app", "2");
  ASSERT_TRUE(recycle(applications(), trash(), {"A.app"}));
  EXPECT_THAT(fs::list(trash()), Optional(ElementsAre("A 2.app", "A.app")));
  EXPECT_FALSE(fs::exists(homeTrash()));
}

TEST_F(RecycleTest, ADoorWhoseTrashWasRemovedGetsItBack) {
  create_symlink(homeTrash() + "/files", trash());
  sandbox_.makeFile("Applications/A.app", "1");
  ASSERT_TRUE(recycle(applications(), trash(), {"A.app"}));
  EXPECT_EQ(readFile(homeTrash() + "/files/A.app"), "1");
  EXPECT_NE(information("A.app"), "");
}

TEST_F(RecycleTest, AnOrdinaryUsersDataFolderOfTheEnvironmentIsUsed) {
  if (Sandbox::canSimulateMachine()) {
    sandbox_.simulateMachine();
    sandbox_.becomeUser(Sandbox::kConsoleUser);
  }
  const std::string data = sandbox_.home() + "/data";
  ::setenv("XDG_DATA_HOME", data.c_str(), 1);
  ASSERT_TRUE(fs::writeAtomically(sandbox_.home() + "/A.app", "1").ok());
  ASSERT_TRUE(recycle(sandbox_.home(), trash(), {"A.app"}));
  EXPECT_EQ(readFile(data + "/Trash/files/A.app"), "1");
}

TEST_F(RecycleTest, WhatIsNoNameIsRefusedAndTheOthersGo) {
  sandbox_.makeFile("Applications/A.app", "1");
  EXPECT_FALSE(recycle(applications(), trash(), {}));
  for (const char* name : {"", ".", "..", "../Applications", "a/b", "missing"}) {
    EXPECT_FALSE(recycle(applications(), trash(), {name})) << name;
  }
  EXPECT_FALSE(recycle("", trash(), {"A.app"}));
  EXPECT_FALSE(recycle(applications(), "", {"A.app"}));
  EXPECT_FALSE(recycle(applications(), sandbox_.path("no/such/trash"), {"A.app"}));
  EXPECT_FALSE(recycle(applications(), trash(), {"missing", "A.app"}));
  EXPECT_THAT(fs::list(homeTrash() + "/info"), Optional(ElementsAre("A.app.trashinfo")));
}

TEST_F(RecycleTest, ALongNameIsShortenedInTheTrashAndKeptInTheInformation) {
  std::string name;
  for (int i = 0; i < 125; ++i) name += "\xC3\xA9";
  name += ".app";
  sandbox_.makeFile("Applications/" + name, "x");
  ASSERT_TRUE(recycle(applications(), trash(), {name}));
  const auto files = fs::list(homeTrash() + "/files");
  ASSERT_TRUE(files);
  ASSERT_EQ(files->size(), 1U);
  EXPECT_EQ(files->front(), name.substr(0, 240) + ".app");
  EXPECT_THAT(information(files->front()), testing::HasSubstr("%C3%A9.app\n"));
}

TEST_F(RecycleTest, AcrossFileSystemsABundleArrivesWhole) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string disk = sandbox_.mountTmpfs("disk");
  makeHostileTree(disk + "/A.app");
  const auto before = describeTree(disk + "/A.app");
  const std::string trash = sandbox_.makeDirectory("home/tester") + "/.Trash";
  ASSERT_TRUE(recycle(disk, trash, {"A.app"}));
  EXPECT_EQ(describeTree(sandbox_.path("home/tester/.local/share/Trash/files/A.app")), before);
  EXPECT_THAT(fs::list(disk), Optional(ElementsAre()));
}

TEST_F(RecycleTest, WhenItCannotBeMovedItStaysWholeAndNoInformationIsLeft) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string disk = sandbox_.mountTmpfs("disk");
  makeHostileTree(disk + "/A.app");
  ASSERT_EQ(std::system(("mount -o remount,ro " + disk).c_str()), 0);
  const std::string small = sandbox_.mountTmpfs("home/tester", 1 << 20);
  EXPECT_FALSE(recycle(disk, small + "/.Trash", {"A.app"})) << "from a read-only place";
  makeHostileTree(sandbox_.path("Applications/A.app"));
  const auto before = describeTree(sandbox_.path("Applications/A.app"));
  EXPECT_FALSE(recycle(applications(), small + "/.Trash", {"A.app"})) << "onto a full disk";
  EXPECT_EQ(describeTree(sandbox_.path("Applications/A.app")), before);
  EXPECT_THAT(fs::list(small + "/.local/share/Trash/info"), Optional(ElementsAre()));
  EXPECT_THAT(fs::list(small + "/.local/share/Trash/files"), Optional(ElementsAre()));
}

TEST_F(RecycleTest, WhereTheInformationOnlyFitsInPartTheItemGoesWithoutIt) {
  sandbox_.makeFile("Applications/A.app/file", "x");
  ASSERT_TRUE(recycle(applications(), trash(), {"A.app"}));
  sandbox_.makeFile("Applications/A.app/file", "y");
  const rlimit tenBytes = {10, 10};
  std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tenBytes), 0);
  EXPECT_TRUE(recycle(applications(), trash(), {"A.app"}));
  EXPECT_EQ(readFile(trash() + "/A 2.app/file"), "y");
  EXPECT_THAT(fs::list(homeTrash() + "/info"), Optional(ElementsAre("A.app.trashinfo")));
}

TEST_F(RecycleTest, OnAFullDiskItemsGoIntoTheTrashWithoutInformation) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const test::LoopImage image(sandbox_, "disk");
  const std::string home = sandbox_.makeDirectory("disk/home");
  sandbox_.makeFile("disk/A.app/file", "x");
  sandbox_.makeFile("disk/B.app/file", "y");
  ASSERT_TRUE(recycle(image.mountPoint(), home + "/.Trash", {"A.app"}));
  fill(image.mountPoint() + "/ballast");
  const std::string console = test::consoleOf(
      [&] { EXPECT_TRUE(recycle(image.mountPoint(), home + "/.Trash", {"B.app"})); });
  EXPECT_THAT(console, testing::HasSubstr("No information for restoring \"" + image.mountPoint() +
                                          "/B.app\" could be written: No space left on device"));
  EXPECT_EQ(readFile(home + "/.Trash/B.app/file"), "y");
  EXPECT_THAT(fs::list(home + "/.local/share/Trash/info"),
              Optional(ElementsAre("A.app.trashinfo")));
}

// On this disk there is room for few inodes: for one folder, and not for all of a trash.
TEST_F(RecycleTest, WithRoomForOneFolderThatIsTheTrash) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string disk = sandbox_.mountTmpfs("disk");
  sandbox_.makeFile("disk/A.app/file", "x");
  sandbox_.makeDirectory("disk/home/.local/share");
  const std::string home = disk + "/home";
  // The root, the bundle, its file, the home and two folders in it are there.
  ASSERT_EQ(std::system(("mount -o remount,nr_inodes=7 " + disk).c_str()), 0);
  EXPECT_TRUE(recycle(disk, home + "/.Trash", {"A.app"}));
  EXPECT_EQ(readFile(home + "/.Trash/A.app/file"), "x");
}

TEST_F(RecycleTest, WithoutRoomForItsFolderThereIsNoInformation) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string disk = sandbox_.mountTmpfs("disk");
  sandbox_.makeFile("disk/A.app/file", "x");
  sandbox_.makeDirectory("disk/home/.local/share");
  const std::string home = disk + "/home";
  ASSERT_EQ(std::system(("mount -o remount,nr_inodes=8 " + disk).c_str()), 0);
  EXPECT_TRUE(recycle(disk, home + "/.Trash", {"A.app"}));
  EXPECT_EQ(readFile(home + "/.local/share/Trash/files/A.app/file"), "x");
}

TEST_F(RecycleTest, InformationWithoutAnItemIsTakenAwayAfterADay) {
  sandbox_.makeFile("Applications/A.app/file", "x");
  ASSERT_TRUE(recycle(applications(), trash(), {"A.app"}));
  const std::string folder = homeTrash() + "/info";
  const auto write = [&](const std::string& name, bool old) {
    ASSERT_TRUE(fs::writeAtomically(folder + "/" + name, "[Trash Info]\n").ok());
    const auto age = std::chrono::hours(old ? 25 : 23);
    std::filesystem::last_write_time(folder + "/" + name,
                                     std::filesystem::file_time_type::clock::now() - age);
  };
  write("A.app.trashinfo", true);
  write("old.trashinfo", true);
  write("new.trashinfo", false);
  write("other", true);
  sandbox_.makeFile("Applications/B.app/file", "x");
  ASSERT_TRUE(recycle(applications(), trash(), {"B.app"}));
  EXPECT_THAT(fs::list(folder), Optional(ElementsAre("A.app.trashinfo", "B.app.trashinfo",
                                                     "new.trashinfo", "other")));
}

TEST_F(RecycleTest, AnImmutableItemStays) {
  const std::string file = sandbox_.makeFile("Applications/A.app", "x");
  if (!fs::setImmutable(file, true).ok()) GTEST_SKIP() << "needs the right to lock files";
  EXPECT_FALSE(recycle(applications(), trash(), {"A.app"}));
  EXPECT_EQ(readFile(file), "x");
  EXPECT_THAT(fs::list(homeTrash() + "/info"), Optional(ElementsAre()));
}

TEST_F(RecycleTest, AnOrdinaryUserCannotRecycleFromAForeignFolder) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.makeFile("Applications/A.app/file", "x");
  sandbox_.simulateMachine();
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_FALSE(recycle(applications(), trash(), {"A.app"}));
  EXPECT_EQ(readFile(applications() + "/A.app/file"), "x");
  EXPECT_THAT(fs::list(homeTrash() + "/info"), Optional(ElementsAre()));
}

TEST_F(RecycleTest, AsSuperuserTheItemKeepsItsOwnerAndTheTrashIsTheConsoleUsers) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.makeFile("Applications/A.app/file", "x");
  becomeSuperuserWithConsoleUser();
  ::setenv("XDG_DATA_HOME", sandbox_.path("roots-data").c_str(), 1);
  const std::string home = sandbox_.homeOf(Sandbox::kConsoleUser);
  ASSERT_TRUE(recycle(applications(), home + "/.Trash", {"A.app"}));
  EXPECT_EQ(fs::attributes(home + "/.Trash/A.app")->ownerId, 0U);
  for (const char* made :
       {"/.Trash", "/.local", "/.local/share", "/.local/share/Trash", "/.local/share/Trash/files",
        "/.local/share/Trash/info", "/.local/share/Trash/info/A.app.trashinfo"}) {
    EXPECT_EQ(fs::attributes(home + made)->ownerId, Sandbox::kConsoleUserId) << made;
  }
  EXPECT_FALSE(fs::exists(sandbox_.path("roots-data")));
}

TEST_F(RecycleTest, TheSuperuserIsNotLedOutOfTheHomeByADoor) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.makeFile("Applications/A.app/file", "x");
  const std::string system = sandbox_.makeDirectory("system/files");
  becomeSuperuserWithConsoleUser();
  const std::string home = sandbox_.homeOf(Sandbox::kConsoleUser);
  for (const std::string& target :
       {system, std::string("../../system/files"), home + "/../../system/files"}) {
    create_symlink(target, home + "/.Trash");
    EXPECT_FALSE(recycle(applications(), home + "/.Trash", {"A.app"})) << target;
    std::filesystem::remove(home + "/.Trash");
  }
  create_symlink(sandbox_.path("system"), home + "/.local");
  EXPECT_FALSE(recycle(applications(), home + "/.Trash", {"A.app"}));
  EXPECT_EQ(readFile(applications() + "/A.app/file"), "x");
  EXPECT_THAT(fs::list(sandbox_.path("system")), Optional(ElementsAre("files")));
  EXPECT_THAT(fs::list(system), Optional(ElementsAre()));
}

TEST_F(RecycleTest, WhatWasRecycledCanBeRestoredByItsInformation) {
  makeHostileTree(sandbox_.path("Applications/A.app"));
  const auto before = describeTree(sandbox_.path("Applications/A.app"));
  ASSERT_TRUE(recycle(applications(), trash(), {"A.app"}));
  const std::string text = information("A.app");
  const std::size_t begin = text.find("Path=") + 5;
  const std::string original = text.substr(begin, text.find('\n', begin) - begin);
  ASSERT_TRUE(fs::move(trash() + "/A.app", original).ok());
  EXPECT_EQ(describeTree(sandbox_.path("Applications/A.app")), before);
}

}  // namespace
