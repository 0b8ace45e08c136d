#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "platform/FileSystem.h"
#include "platform/Workspace.h"
#include "tests/support/LoopImage.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TreeDescription.h"

namespace {

namespace fs = platform::file_system;
using test::describeTree;
using test::LoopImage;
using test::readFile;
using test::Sandbox;
using testing::ElementsAre;
using testing::Optional;

// Takes the last block of the file system that `path` is on.
void fill(const std::string& path) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const std::string block(1024, 'x');
  while (::write(file, block.data(), block.size()) > 0) {
  }
  EXPECT_EQ(errno, ENOSPC);
  ::close(file);
}

// A file system of the kind that is on disks, without a block left: "folder" has a file, and
// "ballast" is what fills the disk. Elsewhere a tree that could go there.
class FullDiskTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    image_.emplace(sandbox_, "disk");
    sandbox_.makeFile("disk/folder/file", "old");
    sandbox_.makeFile("from/tree/sub/more", "x");
    sandbox_.makeFile("from/tree/large", std::string(64 << 10, 'x'));
    ASSERT_TRUE(fs::remove(disk() + "/lost+found").ok());
    fill(disk() + "/ballast");
  }

  std::string disk() const { return image_->mountPoint(); }
  std::string file() const { return disk() + "/folder/file"; }
  std::string tree() const { return sandbox_.path("from/tree"); }

  void expectOnlyWhatWasThere() const {
    EXPECT_THAT(fs::list(disk()), Optional(ElementsAre("ballast", "folder")));
    EXPECT_THAT(fs::list(disk() + "/folder"), Optional(ElementsAre("file")));
    EXPECT_EQ(readFile(file()), "old");
  }

  Sandbox sandbox_;
  std::optional<LoopImage> image_;
};

TEST_F(FullDiskTest, ACopyIsRefusedAndLeavesNothing) {
  EXPECT_EQ(fs::copy(tree(), disk() + "/copy").code(), ENOSPC);
  EXPECT_EQ(fs::copy(tree() + "/large", disk() + "/folder/copy").code(), ENOSPC);
  expectOnlyWhatWasThere();
}

TEST_F(FullDiskTest, AMoveToItIsRefusedAndTheSourceStaysWhole) {
  const auto before = describeTree(tree());
  EXPECT_EQ(fs::move(tree(), disk() + "/moved").code(), ENOSPC);
  EXPECT_EQ(describeTree(tree()), before);
  expectOnlyWhatWasThere();
}

TEST_F(FullDiskTest, WhatIsThereCanBeMovedWithinItAndAway) {
  EXPECT_TRUE(fs::move(file(), disk() + "/folder/renamed").ok());
  EXPECT_TRUE(fs::move(disk() + "/folder", sandbox_.path("taken")).ok());
  EXPECT_EQ(readFile(sandbox_.path("taken/renamed")), "old");
  EXPECT_THAT(fs::list(disk()), Optional(ElementsAre("ballast")));
}

TEST_F(FullDiskTest, RemovingMakesRoomAgain) {
  EXPECT_TRUE(fs::remove(disk() + "/ballast").ok());
  EXPECT_TRUE(fs::copy(tree(), disk() + "/copy").ok());
}

TEST_F(FullDiskTest, NoDirectoryIsMade) {
  EXPECT_EQ(fs::createDirectory(disk() + "/folder/new").code(), ENOSPC);
  expectOnlyWhatWasThere();
}

TEST_F(FullDiskTest, AFileThatCannotBeReplacedIsKept) {
  EXPECT_EQ(fs::writeAtomically(file(), std::string(64 << 10, 'x')).code(), ENOSPC);
  expectOnlyWhatWasThere();
}

TEST_F(FullDiskTest, WhatAnItemIsCanBeChanged) {
  const auto date = std::chrono::system_clock::from_time_t(1000000000);
  EXPECT_TRUE(fs::setPermissions(file(), 0640).ok());
  EXPECT_EQ(fs::setCreationDate(file(), date).code(), ENOTSUP) << "no system call sets it";
  EXPECT_TRUE(fs::setImmutable(file(), true).ok());
  const auto attributes = fs::attributes(file());
  ASSERT_TRUE(attributes);
  EXPECT_EQ(attributes->permissions, 0640U);
  EXPECT_TRUE(attributes->immutable);
  EXPECT_TRUE(fs::setImmutable(file(), false).ok());
  EXPECT_FALSE(fs::attributes(file())->immutable);
}

TEST_F(FullDiskTest, WhatCannotBeRecycledStaysWholeWithoutInformation) {
  const std::string home = sandbox_.makeDirectory("disk/folder");
  const auto before = describeTree(tree());
  EXPECT_FALSE(platform::workspace::recycle(sandbox_.path("from"), home + "/.Trash", {"tree"}));
  EXPECT_EQ(describeTree(tree()), before);
}

}  // namespace
