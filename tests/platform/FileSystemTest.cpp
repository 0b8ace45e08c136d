#include "platform/FileSystem.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/support/Sandbox.h"

namespace {

namespace fs = platform::file_system;
using std::filesystem::create_symlink;
using test::readFile;
using test::Sandbox;
using testing::ElementsAre;
using testing::Optional;

class FileSystemTest : public testing::Test {
 protected:
  Sandbox sandbox_;
};

unsigned ownerOf(const std::string& path) {
  const auto attributes = fs::attributes(path);
  return attributes ? attributes->ownerId : ~0U;
}

TEST_F(FileSystemTest, ALinkExistsWhenItsTargetDoes) {
  const std::string file = sandbox_.makeFile("file");
  create_symlink(file, sandbox_.path("good"));
  create_symlink("nowhere", sandbox_.path("dangling"));
  EXPECT_TRUE(fs::exists(file));
  EXPECT_TRUE(fs::exists(sandbox_.path("good")));
  EXPECT_FALSE(fs::exists(sandbox_.path("dangling")));
  EXPECT_FALSE(fs::exists(""));
}

TEST_F(FileSystemTest, ALinkToADirectoryIsADirectory) {
  create_symlink(sandbox_.makeDirectory("folder"), sandbox_.path("link"));
  EXPECT_TRUE(fs::isDirectory(sandbox_.path("folder")));
  EXPECT_TRUE(fs::isDirectory(sandbox_.path("link")));
  EXPECT_FALSE(fs::isDirectory(sandbox_.makeFile("file")));
  EXPECT_FALSE(fs::isDirectory(sandbox_.path("missing")));
}

TEST_F(FileSystemTest, AttributesAreTheItemsOwn) {
  const std::string file = sandbox_.makeFile("file", "four");
  ASSERT_EQ(::chmod(file.c_str(), 02750), 0);
  const timespec times[] = {{1, 0}, {1234567890, 987654321}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  create_symlink(file, sandbox_.path("link"));

  const auto attributes = fs::attributes(file);
  ASSERT_TRUE(attributes);
  EXPECT_EQ(attributes->kind, fs::Kind::regular);
  EXPECT_EQ(attributes->size, 4U);
  EXPECT_EQ(attributes->permissions, 02750U);
  EXPECT_EQ(attributes->ownerId, ::getuid());
  EXPECT_EQ(attributes->modificationDate.time_since_epoch(),
            std::chrono::nanoseconds(1234567890987654321));
  EXPECT_FALSE(attributes->immutable);
  EXPECT_EQ(fs::attributes(sandbox_.path("link"))->kind, fs::Kind::symbolicLink);
  EXPECT_EQ(fs::attributes(sandbox_.root())->kind, fs::Kind::directory);
  ASSERT_EQ(::mkfifo(sandbox_.path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(fs::attributes(sandbox_.path("pipe"))->kind, fs::Kind::other);
  EXPECT_FALSE(fs::attributes(sandbox_.path("missing")));
}

TEST_F(FileSystemTest, ADateThatTheClockCannotTellIsTheLastOrFirstThatItCan) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.mountTmpfs("disk");
  const std::string file = sandbox_.makeFile("disk/file");
  using std::chrono::system_clock;
  const auto dateAt = [&](time_t seconds) {
    const timespec times[2] = {{seconds, 0}, {seconds, 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    return fs::attributes(file)->modificationDate;
  };
  EXPECT_EQ(dateAt(20000000000), system_clock::time_point::max());
  EXPECT_EQ(dateAt(-20000000000), system_clock::time_point::min());
  EXPECT_EQ(dateAt(9000000000), system_clock::from_time_t(9000000000));
}

TEST_F(FileSystemTest, ALinksTargetIsAnsweredAsItIsWritten) {
  create_symlink("../some/where", sandbox_.path("link"));
  EXPECT_THAT(fs::symbolicLinkTarget(sandbox_.path("link")),
              Optional(std::string("../some/where")));
  EXPECT_FALSE(fs::symbolicLinkTarget(sandbox_.makeFile("file")));
  EXPECT_FALSE(fs::symbolicLinkTarget(sandbox_.path("missing")));
}

TEST_F(FileSystemTest, AListingHasHiddenNamesAndIsOrderedByTheirBytes) {
  for (const char* name : {"b", "a", ".hidden", "B", "\xC3\xA9", "\xFF", "a b", "10", "9"}) {
    sandbox_.makeFile(std::string("folder/") + name);
  }
  EXPECT_THAT(
      fs::list(sandbox_.path("folder")),
      Optional(ElementsAre(".hidden", "10", "9", "B", "a", "a b", "b", "\xC3\xA9", "\xFF")));
}

TEST_F(FileSystemTest, OnlyTheEntriesThatAreLikeAPatternAreVisitedInOrder) {
  for (const char* name : {"b.log", ".a.log", "a.txt", "a.log"}) {
    sandbox_.makeFile(std::string("folder/") + name);
  }
  sandbox_.makeDirectory("folder/d.log");
  create_symlink("d.log", sandbox_.path("folder/l.log"));
  std::vector<std::string> names;
  std::vector<fs::Kind> kinds;
  const auto note = [&](std::string_view name, fs::Kind kind) {
    names.emplace_back(name);
    kinds.push_back(kind);
  };
  fs::visitEntriesLike(sandbox_.path("folder"), "*.log", note);
  fs::visitEntriesLike(sandbox_.path("missing"), "*", note);
  EXPECT_THAT(names, ElementsAre(".a.log", "a.log", "b.log", "d.log", "l.log"));
  EXPECT_THAT(kinds, ElementsAre(fs::Kind::regular, fs::Kind::regular, fs::Kind::regular,
                                 fs::Kind::directory, fs::Kind::symbolicLink));
}

TEST_F(FileSystemTest, OnlyADirectoryCanBeListed) {
  EXPECT_FALSE(fs::list(sandbox_.makeFile("file")));
  EXPECT_FALSE(fs::list(sandbox_.path("missing")));
  EXPECT_FALSE(fs::list(""));
  EXPECT_THAT(fs::list(sandbox_.makeDirectory("empty")), Optional(ElementsAre()));
}

TEST_F(FileSystemTest, ADirectoryIsMadeWithThoseAboveIt) {
  EXPECT_TRUE(fs::createDirectory(sandbox_.path("a/b/c/")).ok());
  EXPECT_TRUE(fs::isDirectory(sandbox_.path("a/b/c")));
  EXPECT_TRUE(fs::createDirectory(sandbox_.path("a/b/c")).ok()) << "one that is there is a success";
}

TEST_F(FileSystemTest, ADirectoryIsNotMadeInPlaceOfOrBelowAFile) {
  const std::string file = sandbox_.makeFile("file", "kept");
  EXPECT_EQ(fs::createDirectory(file).code(), EEXIST);
  EXPECT_EQ(fs::createDirectory(file + "/below").code(), ENOTDIR);
  EXPECT_FALSE(fs::createDirectory("").ok());
  EXPECT_EQ(readFile(file), "kept");
}

TEST_F(FileSystemTest, WritingReplacesAFileWholeAndKeepsItsPermissions) {
  const std::string file = sandbox_.makeFile("folder/file", "old and long");
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  EXPECT_TRUE(fs::writeAtomically(file, "new").ok());
  EXPECT_EQ(readFile(file), "new");
  EXPECT_EQ(fs::attributes(file)->permissions, 0640U);
  EXPECT_THAT(fs::list(sandbox_.path("folder")), Optional(ElementsAre("file")));
}

TEST_F(FileSystemTest, WritingNeedsAFolderAndLeavesNothingBehindWhenItFails) {
  EXPECT_EQ(fs::writeAtomically(sandbox_.path("missing/file"), "x").code(), ENOENT);
  sandbox_.makeDirectory("folder/taken");
  EXPECT_EQ(fs::writeAtomically(sandbox_.path("folder/taken"), "x").code(), EISDIR);
  EXPECT_THAT(fs::list(sandbox_.path("folder")), Optional(ElementsAre("taken")));
  EXPECT_FALSE(fs::writeAtomically("", "x").ok());
}

TEST_F(FileSystemTest, AFullDiskLeavesTheOldFileAsItWas) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string disk = sandbox_.mountTmpfs("disk", 64 * 1024);
  const std::string file = disk + "/file";
  ASSERT_TRUE(fs::writeAtomically(file, "old").ok());
  EXPECT_EQ(fs::writeAtomically(file, std::string(1 << 20, 'x')).code(), ENOSPC);
  EXPECT_EQ(readFile(file), "old");
  EXPECT_THAT(fs::list(disk), Optional(ElementsAre("file")));
}

TEST_F(FileSystemTest, OnAFullDiskNoDirectoryIsMadeAndWhatIsThereCanBeChangedAndRemoved) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string disk = sandbox_.mountTmpfs("disk", 64 * 1024);
  const std::string file = disk + "/folder/file";
  ASSERT_TRUE(fs::createDirectory(disk + "/folder").ok());
  ASSERT_TRUE(fs::writeAtomically(file, "x").ok());
  ASSERT_EQ(::mount(nullptr, disk.c_str(), nullptr, MS_REMOUNT, "nr_inodes=16"), 0);
  int directories = 0;
  auto made = fs::createDirectory(disk + "/0");
  while (made.ok() && directories < 16) {
    made = fs::createDirectory(disk + "/" + std::to_string(++directories));
  }
  EXPECT_EQ(made.code(), ENOSPC) << made.description();
  EXPECT_FALSE(fs::exists(disk + "/" + std::to_string(directories)));
  EXPECT_TRUE(fs::setPermissions(file, 0600).ok());
  EXPECT_EQ(fs::attributes(file)->permissions, 0600U);
  EXPECT_TRUE(fs::remove(disk + "/folder").ok());
  EXPECT_TRUE(fs::createDirectory(disk + "/again").ok()) << "there is room again";
}

TEST_F(FileSystemTest, ReadingAnswersTheWholeFileUpToTheLimit) {
  const std::string file = sandbox_.makeFile("file", std::string(10000, 'x'));
  EXPECT_THAT(fs::read(file), Optional(std::string(10000, 'x')));
  EXPECT_TRUE(fs::read(file, 10000));
  EXPECT_FALSE(fs::read(file, 9999));
  EXPECT_THAT(fs::read(sandbox_.makeFile("empty"), 0), Optional(std::string()));
}

TEST_F(FileSystemTest, ReadingAPipeOrADirectoryDoesNotHang) {
  ASSERT_EQ(::mkfifo(sandbox_.path("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(fs::read(sandbox_.path("pipe")));
  EXPECT_FALSE(fs::read(sandbox_.root()));
  EXPECT_FALSE(fs::read(sandbox_.path("missing")));
}

TEST_F(FileSystemTest, WhatTheSuperuserMakesInTheConsoleUsersHomeBelongsToThatUser) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  const std::string home = sandbox_.homeOf(Sandbox::kConsoleUser);
  ASSERT_TRUE(fs::createDirectory(home + "/Library/Logs").ok());
  ASSERT_TRUE(fs::writeAtomically(home + "/Library/Logs/log", "x").ok());
  for (const char* made : {"/Library", "/Library/Logs", "/Library/Logs/log"}) {
    EXPECT_EQ(ownerOf(home + made), Sandbox::kConsoleUserId) << made;
  }
  ASSERT_TRUE(fs::createDirectory(sandbox_.path("elsewhere")).ok());
  EXPECT_EQ(ownerOf(sandbox_.path("elsewhere")), 0U);
}

TEST_F(FileSystemTest, WhatTheSuperuserMakesInAFolderOfItsOwnInThatHomeIsItsOwn) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  const std::string folder = sandbox_.homeOf(Sandbox::kConsoleUser) + "/roots";
  std::filesystem::create_directory(folder);
  ASSERT_TRUE(fs::writeAtomically(folder + "/file", "x").ok());
  EXPECT_EQ(ownerOf(folder + "/file"), 0U);
}

TEST_F(FileSystemTest, TheSuperuserFollowsNoLinkInTheConsoleUsersHome) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  const std::string home = sandbox_.homeOf(Sandbox::kConsoleUser);
  const std::string system = sandbox_.makeDirectory("system");
  create_symlink(system, home + "/Library");
  EXPECT_FALSE(fs::createDirectory(home + "/Library/Logs").ok());
  EXPECT_FALSE(fs::writeAtomically(home + "/Library/planted", "x").ok());
  EXPECT_THAT(fs::list(system), Optional(ElementsAre()));

  const std::string secret = sandbox_.makeFile("secret", "kept");
  create_symlink(secret, home + "/file");
  EXPECT_TRUE(fs::writeAtomically(home + "/file", "x").ok());
  EXPECT_EQ(readFile(secret), "kept") << "the link is replaced, not what it leads to";
  EXPECT_EQ(fs::attributes(home + "/file")->kind, fs::Kind::regular);
}

TEST_F(FileSystemTest, WritableAndExecutableAreAskedForTheRealUser) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string mine = sandbox_.makeFile("root-owned");
  sandbox_.simulateMachine();
  EXPECT_TRUE(fs::isWritable(mine));
  EXPECT_FALSE(fs::isExecutable(mine));
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_FALSE(fs::isWritable(mine));
  EXPECT_TRUE(fs::isExecutable("/bin/sh"));
  EXPECT_TRUE(fs::isWritable(sandbox_.home()));
}

}  // namespace
