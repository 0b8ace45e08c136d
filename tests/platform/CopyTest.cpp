#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "platform/FileSystem.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TreeDescription.h"

namespace {

namespace fs = platform::file_system;
using test::describeTree;
using test::makeHostileTree;
using test::readFile;
using test::Sandbox;
using testing::ElementsAre;
using testing::Optional;

class CopyTest : public testing::Test {
 protected:
  std::string tree() const { return sandbox_.path("tree"); }

  Sandbox sandbox_;
};

int run(const std::string& command) {
  return std::system(command.c_str());
}

TEST_F(CopyTest, AHostileTreeIsCopiedWithEverythingInIt) {
  makeHostileTree(tree());
  const auto status = fs::copy(tree(), sandbox_.path("copy"));
  ASSERT_TRUE(status.ok()) << status.description();
  EXPECT_EQ(describeTree(sandbox_.path("copy")), describeTree(tree()));
}

TEST_F(CopyTest, ACopyIsWhatCpMakes) {
  makeHostileTree(tree());
  ASSERT_TRUE(fs::copy(tree(), sandbox_.path("copy")).ok());
  ASSERT_EQ(run("cp -a " + tree() + " " + sandbox_.path("peer")), 0);
  EXPECT_EQ(describeTree(sandbox_.path("copy")), describeTree(sandbox_.path("peer")));
}

TEST_F(CopyTest, RsyncFindsNothingToChangeInACopy) {
  if (run("command -v rsync >/dev/null") != 0) GTEST_SKIP() << "needs rsync";
  makeHostileTree(tree());
  ASSERT_TRUE(fs::copy(tree(), sandbox_.path("copy")).ok());
  const std::string report = sandbox_.path("report");
  ASSERT_EQ(run("rsync -aHAXn --checksum --delete --itemize-changes " + tree() + "/ " +
                sandbox_.path("copy") + "/ > " + report),
            0);
  EXPECT_EQ(readFile(report), "");
}

TEST_F(CopyTest, AHostileTreeIsCopiedFromTheDiskToMemoryAndBack) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string memory = sandbox_.mountTmpfs("memory");
  makeHostileTree(tree());
  ASSERT_TRUE(fs::copy(tree(), memory + "/copy").ok());
  const auto status = fs::copy(memory + "/copy", sandbox_.path("back"));
  ASSERT_TRUE(status.ok()) << status.description();
  EXPECT_EQ(describeTree(sandbox_.path("back")), describeTree(tree()));
}

TEST_F(CopyTest, AnOrdinaryUserKeepsAllButForeignOwners) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string foreign = sandbox_.makeFile("foreign", "x");
  ASSERT_EQ(::chmod(foreign.c_str(), 06755), 0);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const std::string home = sandbox_.home();
  makeHostileTree(home + "/tree");
  const auto status = fs::copy(home + "/tree", home + "/copy");
  ASSERT_TRUE(status.ok()) << status.description();
  EXPECT_EQ(describeTree(home + "/copy"), describeTree(home + "/tree"));

  ASSERT_TRUE(fs::copy(foreign, home + "/mine").ok());
  EXPECT_EQ(fs::attributes(home + "/mine")->ownerId, Sandbox::kConsoleUserId);
  EXPECT_EQ(fs::attributes(home + "/mine")->permissions, 0755U)
      << "no program runs as somebody who did not make it so";
}

TEST_F(CopyTest, EachKindOfItemIsCopiedAlone) {
  makeHostileTree(tree());
  for (const char* name : {"files/one", "files/holes", "links/dangling", "links/up", "special/pipe",
                           "attributes/file", "attributes/listed", "modes/2541", "empty"}) {
    const auto status = fs::copy(tree() + "/" + name, sandbox_.path("copy"));
    ASSERT_TRUE(status.ok()) << status.description();
    EXPECT_EQ(describeTree(sandbox_.path("copy")), describeTree(tree() + "/" + name));
    ASSERT_TRUE(fs::remove(sandbox_.path("copy")).ok());
  }
}

TEST_F(CopyTest, TheTimesOfAccessAreKeptToo) {
  const std::string file = sandbox_.makeFile("tree/file", "x");
  const timespec times[2] = {{1000000000, 123}, {1000000001, 456}};
  for (const std::string& path : {file, tree()}) {
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
  ASSERT_TRUE(fs::copy(tree(), sandbox_.path("copy")).ok());
  for (const char* copied : {"copy", "copy/file"}) {
    struct stat status {};
    ASSERT_EQ(::stat(sandbox_.path(copied).c_str(), &status), 0);
    EXPECT_EQ(status.st_atim.tv_sec, 1000000000) << copied;
    EXPECT_EQ(status.st_atim.tv_nsec, 123) << copied;
  }
}

TEST_F(CopyTest, AnExistingItemIsNeitherReplacedNorMergedInto) {
  sandbox_.makeFile("tree/new", "x");
  sandbox_.makeFile("taken/old", "y");
  EXPECT_EQ(fs::copy(tree(), sandbox_.path("taken")).code(), EEXIST);
  EXPECT_EQ(fs::copy(tree(), sandbox_.makeDirectory("empty")).code(), EEXIST);
  std::filesystem::create_symlink("nowhere", sandbox_.path("dangling"));
  EXPECT_EQ(fs::copy(tree(), sandbox_.path("dangling")).code(), EEXIST);
  EXPECT_EQ(fs::copy(tree(), tree()).code(), EEXIST);
  EXPECT_THAT(fs::list(sandbox_.path("taken")), Optional(ElementsAre("old")));
}

TEST_F(CopyTest, AFolderIsNotCopiedIntoItself) {
  sandbox_.makeFile("tree/in/file", "x");
  EXPECT_EQ(fs::copy(tree(), tree() + "/copy").code(), EINVAL);
  EXPECT_EQ(fs::copy(tree(), tree() + "/in/copy").code(), EINVAL);
  EXPECT_THAT(fs::list(tree()), Optional(ElementsAre("in")));
}

TEST_F(CopyTest, WhatIsMissingIsRefused) {
  EXPECT_EQ(fs::copy(sandbox_.path("missing"), sandbox_.path("copy")).code(), ENOENT);
  EXPECT_EQ(fs::copy(sandbox_.makeFile("file"), sandbox_.path("no/folder")).code(), ENOENT);
  EXPECT_FALSE(fs::copy("", sandbox_.path("copy")).ok());
  EXPECT_FALSE(fs::copy(sandbox_.path("file"), "").ok());
  EXPECT_FALSE(fs::copy(sandbox_.path("file"), sandbox_.path("..")).ok());
  EXPECT_FALSE(fs::copy("/", sandbox_.path("copy")).ok());
}

TEST_F(CopyTest, AFullDiskLeavesNothingBehindAndIsReportedAsSuch) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  makeHostileTree(tree());
  for (int i = 0; i < 20; ++i) {
    sandbox_.makeFile("tree/much/" + std::to_string(i), std::string(1 << 20, 'x'));
  }
  const std::string disk = sandbox_.mountTmpfs("disk", 8 << 20);
  EXPECT_EQ(fs::copy(tree(), disk + "/copy").code(), ENOSPC);
  EXPECT_EQ(fs::copy(tree() + "/much", disk + "/copy").code(), ENOSPC);
  sandbox_.makeFile("large", std::string(9 << 20, 'x'));
  EXPECT_EQ(fs::copy(sandbox_.path("large"), disk + "/copy").code(), ENOSPC);
  EXPECT_THAT(fs::list(disk), Optional(ElementsAre()));
}

TEST_F(CopyTest, AnUnreadableItemFailsTheWholeCopy) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string secret = sandbox_.makeFile("tree/sub/secret", "x");
  sandbox_.makeFile("tree/readable", "x");
  ASSERT_EQ(::chmod(secret.c_str(), 0600), 0);
  sandbox_.simulateMachine();
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const auto status = fs::copy(tree(), sandbox_.home() + "/copy");
  EXPECT_EQ(status.code(), EACCES);
  EXPECT_EQ(status.description(), secret + ": Permission denied");
  EXPECT_THAT(fs::list(sandbox_.home()), Optional(ElementsAre()));
}

TEST_F(CopyTest, AFolderThatTheUserMayNotWriteInIsBlamedForTheFailure) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string file = sandbox_.makeFile("file", "x");
  const std::string copy = sandbox_.makeDirectory("closed") + "/copy";
  sandbox_.simulateMachine();
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const auto status = fs::copy(file, copy);
  EXPECT_EQ(status.code(), EACCES);
  EXPECT_EQ(status.description(), copy + ": Permission denied");
}

TEST_F(CopyTest, AReadOnlyFileSystemIsReportedAsSuch) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string disk = sandbox_.mountTmpfs("disk");
  sandbox_.makeFile("disk/file", "x");
  ASSERT_EQ(run("mount -o remount,ro " + disk), 0);
  const auto status = fs::copy(disk + "/file", disk + "/copy");
  EXPECT_EQ(status.code(), EROFS);
  EXPECT_EQ(status.description(), disk + "/copy: Read-only file system");
  EXPECT_TRUE(fs::copy(disk + "/file", sandbox_.path("copy")).ok());
}

TEST_F(CopyTest, InheritedAccessListsDoNotGetIntoTheCopy) {
  if (run("command -v setfacl >/dev/null") != 0) GTEST_SKIP() << "needs setfacl";
  makeHostileTree(tree());
  const std::string folder = sandbox_.makeDirectory("inheriting");
  ASSERT_EQ(run("setfacl -d -m u:61001:rwx " + folder), 0);
  ASSERT_TRUE(fs::copy(tree(), folder + "/copy").ok());
  EXPECT_EQ(describeTree(folder + "/copy"), describeTree(tree()));
  ASSERT_TRUE(fs::copy(tree() + "/files/one", folder + "/one").ok());
  EXPECT_EQ(describeTree(folder + "/one"), describeTree(tree() + "/files/one"));
}

TEST_F(CopyTest, AFolderThatHandsItsGroupDownDoesNotChangeTheCopy) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  makeHostileTree(tree());
  const std::string folder = sandbox_.makeDirectory("handing");
  ASSERT_EQ(::chown(folder.c_str(), 0, 61002), 0);
  ASSERT_EQ(::chmod(folder.c_str(), 02777), 0);
  ASSERT_TRUE(fs::copy(tree(), folder + "/copy").ok());
  EXPECT_EQ(describeTree(folder + "/copy"), describeTree(tree()));
}

TEST_F(CopyTest, TheCreationMaskDoesNotChangeTheCopy) {
  makeHostileTree(tree());
  ::umask(0077);
  ASSERT_TRUE(fs::copy(tree(), sandbox_.path("copy")).ok());
  EXPECT_EQ(describeTree(sandbox_.path("copy")), describeTree(tree()));
}

}  // namespace
