#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

#include "platform/FileSystem.h"
#include "tests/support/FailingCall.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = platform::file_system;
using test::failCall;
using test::readFile;
using test::Sandbox;
using testing::ElementsAre;
using testing::Optional;

// What a copy does when a system call answers what it hardly ever answers.
class CopyFaultsTest : public testing::Test {
 protected:
  void giveAway(const std::string& path) const {
    ASSERT_EQ(::lchown(path.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
  }
  bool isAlone() const { return !fs::exists(copy_) && fs::list(sandbox_.path("to"))->empty(); }

  Sandbox sandbox_;
  const std::string tree_ = sandbox_.makeDirectory("tree");
  const std::string copy_ = sandbox_.makeDirectory("to") + "/copy";
};

TEST_F(CopyFaultsTest, AnOwnerThatTheDiskFailsToKeepFailsTheCopy) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  giveAway(sandbox_.makeFile("tree/file", "x"));
  failCall(SYS_fchownat, EIO);
  EXPECT_EQ(fs::copy(tree_, copy_).code(), EIO);
  EXPECT_TRUE(isAlone());
}

TEST_F(CopyFaultsTest, AnOwnerThatMayNotBeGivenIsLeftOut) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  giveAway(sandbox_.makeFile("tree/file", "x"));
  ASSERT_EQ(::chmod((tree_ + "/file").c_str(), 04755), 0);
  failCall(SYS_fchownat, EPERM);
  ASSERT_TRUE(fs::copy(tree_, copy_).ok());
  EXPECT_EQ(fs::attributes(copy_ + "/file")->ownerId, 0U);
  EXPECT_EQ(fs::attributes(copy_ + "/file")->permissions, 0755U);
}

TEST_F(CopyFaultsTest, AnAttributeThatTheDiskFailsToKeepFailsTheCopy) {
  const std::string file = sandbox_.makeFile("tree/file", "x");
  ASSERT_EQ(std::system(("setfattr -n user.note -v x " + file).c_str()), 0);
  failCall(SYS_fsetxattr, ENOSPC);
  EXPECT_EQ(fs::copy(tree_, copy_).code(), ENOSPC);
  EXPECT_TRUE(isAlone());
}

TEST_F(CopyFaultsTest, BeyondTheLimitOfLinksTheNamesOfAFileBecomeFilesOfTheirOwn) {
  const std::string file = sandbox_.makeFile("tree/one", "contents");
  std::filesystem::create_hard_link(file, tree_ + "/two");
  failCall(SYS_linkat, EMLINK);
  ASSERT_TRUE(fs::copy(tree_, copy_).ok());
  EXPECT_THAT(fs::list(copy_), Optional(ElementsAre("one", "two")));
  EXPECT_EQ(readFile(copy_ + "/one"), "contents");
  EXPECT_EQ(readFile(copy_ + "/two"), "contents");
  EXPECT_NE(fs::identity(copy_ + "/one"), fs::identity(copy_ + "/two"));
}

// Shortens the file when its last hole is told of, after which only its size is looked at.
class ShortenedAtTheEnd : public fs::CopyObserver {
 public:
  explicit ShortenedAtTheEnd(std::string path) : path_(std::move(path)) {}
  void bytesCopied(std::uint64_t bytes, const Item&) override {
    copied_ += static_cast<off_t>(bytes);
    if (copied_ != kSize) return;
    EXPECT_EQ(::truncate(path_.c_str(), kSize / 2), 0);
  }
  void itemCopied(const Item&) override {}
  bool isCancelled() override { return false; }

  static constexpr off_t kSize = 8 << 20;

 private:
  const std::string path_;
  off_t copied_ = 0;
};

TEST_F(CopyFaultsTest, ASparseFileThatBecameShorterMeanwhileFailsTheCopy) {
  const std::string file = sandbox_.makeFile("tree/file", "begins with data");
  ASSERT_EQ(::truncate(file.c_str(), ShortenedAtTheEnd::kSize), 0);
  ShortenedAtTheEnd observer(file);
  EXPECT_EQ(fs::copy(file, copy_, &observer).code(), ESTALE);
  EXPECT_TRUE(isAlone());
}

}  // namespace
