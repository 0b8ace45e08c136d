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
using std::filesystem::create_symlink;
using test::describeTree;
using test::makeHostileTree;
using test::readFile;
using test::Sandbox;
using testing::ElementsAre;
using testing::Optional;

class MoveTest : public testing::Test {
 protected:
  // A second file system, of at most `bytes`.
  std::string otherDisk(unsigned long bytes = 64UL << 20) {
    sandbox_.simulateMachine();
    return sandbox_.mountTmpfs("disk", bytes);
  }

  Sandbox sandbox_;
};

TEST_F(MoveTest, AMoveRefusesAnExistingItemAndLeavesBoth) {
  const std::string from = sandbox_.makeFile("from", "1");
  const std::string to = sandbox_.makeFile("to", "2");
  EXPECT_EQ(fs::move(from, to).code(), EEXIST);
  EXPECT_EQ(fs::move(from, sandbox_.makeDirectory("empty")).code(), EEXIST);
  create_symlink("nowhere", sandbox_.path("dangling"));
  EXPECT_EQ(fs::move(from, sandbox_.path("dangling")).code(), EEXIST);
  EXPECT_EQ(readFile(from), "1");
  EXPECT_EQ(readFile(to), "2");
}

TEST_F(MoveTest, AMoveOntoItselfSucceeds) {
  const std::string file = sandbox_.makeFile("file", "1");
  EXPECT_TRUE(fs::move(file, file).ok());
  EXPECT_TRUE(fs::move(file, sandbox_.path("./file")).ok());
  EXPECT_EQ(readFile(file), "1");
  EXPECT_EQ(fs::move(sandbox_.path("missing"), sandbox_.path("missing")).code(), ENOENT);
}

TEST_F(MoveTest, AMoveTakesALinkItselfAndAFolderWhole) {
  sandbox_.makeFile("A.app/Contents/file", "x");
  create_symlink("A.app", sandbox_.path("link"));
  EXPECT_TRUE(fs::move(sandbox_.path("link"), sandbox_.path("moved")).ok());
  EXPECT_THAT(fs::symbolicLinkTarget(sandbox_.path("moved")), Optional(std::string("A.app")));
  EXPECT_TRUE(fs::move(sandbox_.path("A.app/"), sandbox_.path("B.app/")).ok());
  EXPECT_EQ(readFile(sandbox_.path("B.app/Contents/file")), "x");
  EXPECT_EQ(fs::move(sandbox_.path("B.app"), sandbox_.path("B.app/Contents/in")).code(), EINVAL);
}

TEST_F(MoveTest, AcrossFileSystemsEverythingArrivesAndTheSourceIsGone) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string disk = otherDisk();
  makeHostileTree(sandbox_.path("from/tree"));
  const auto before = describeTree(sandbox_.path("from/tree"));
  const auto status = fs::move(sandbox_.path("from/tree"), disk + "/tree");
  ASSERT_TRUE(status.ok()) << status.description();
  EXPECT_EQ(describeTree(disk + "/tree"), before);
  EXPECT_THAT(fs::list(sandbox_.path("from")), Optional(ElementsAre()));
  EXPECT_THAT(fs::list(disk), Optional(ElementsAre("tree")));
}

TEST_F(MoveTest, AcrossFileSystemsAnExistingItemIsRefused) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string disk = otherDisk();
  const std::string from = sandbox_.makeFile("from", "1");
  sandbox_.makeFile("disk/to", "2");
  EXPECT_EQ(fs::move(from, disk + "/to").code(), EEXIST);
  EXPECT_EQ(readFile(from), "1");
  EXPECT_EQ(readFile(disk + "/to"), "2");
}

TEST_F(MoveTest, AFullDiskLeavesTheSourceWholeAndNothingElse) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string disk = otherDisk(1 << 20);
  makeHostileTree(sandbox_.path("from/tree"));
  const auto before = describeTree(sandbox_.path("from/tree"));
  EXPECT_EQ(fs::move(sandbox_.path("from/tree"), disk + "/tree").code(), ENOSPC);
  EXPECT_EQ(describeTree(sandbox_.path("from/tree")), before);
  EXPECT_THAT(fs::list(sandbox_.path("from")), Optional(ElementsAre("tree")));
  EXPECT_THAT(fs::list(disk), Optional(ElementsAre()));
}

TEST_F(MoveTest, AcrossFileSystemsAReadOnlySourceStaysAndNoCopyIsLeft) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string disk = otherDisk();
  sandbox_.makeFile("disk/tree/file", "x");
  ASSERT_EQ(std::system(("mount -o remount,ro " + disk).c_str()), 0);
  sandbox_.makeDirectory("to");
  EXPECT_EQ(fs::move(disk + "/tree", sandbox_.path("to/tree")).code(), EROFS);
  EXPECT_THAT(fs::list(sandbox_.path("to")), Optional(ElementsAre()));
}

TEST_F(MoveTest, AcrossFileSystemsAnItemThatMayNotBeTakenStaysAndNoCopyIsLeft) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string disk = otherDisk();
  ASSERT_EQ(::chmod(disk.c_str(), 01777), 0);
  sandbox_.makeFile("disk/foreign/file", "x");
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_EQ(fs::move(disk + "/foreign", sandbox_.home() + "/taken").code(), EPERM);
  EXPECT_EQ(readFile(disk + "/foreign/file"), "x");
  EXPECT_THAT(fs::list(sandbox_.home()), Optional(ElementsAre()));
}

TEST_F(MoveTest, AnImmutableItemIsNotMoved) {
  const std::string file = sandbox_.makeFile("folder/file", "x");
  if (!fs::setImmutable(file, true).ok()) GTEST_SKIP() << "needs the right to lock files";
  EXPECT_EQ(fs::move(file, sandbox_.path("moved")).code(), EPERM);
  EXPECT_EQ(readFile(file), "x");
}

}  // namespace
