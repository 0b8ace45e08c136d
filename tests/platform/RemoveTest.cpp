#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "platform/FileSystem.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TreeDescription.h"

namespace {

namespace fs = platform::file_system;
using test::makeHostileTree;
using test::readFile;
using test::Sandbox;
using testing::ElementsAre;
using testing::Optional;

class RemoveTest : public testing::Test {
 protected:
  std::string tree() const { return sandbox_.path("folder/tree"); }

  Sandbox sandbox_;
};

TEST_F(RemoveTest, AHostileTreeGoesWholeAndNothingElse) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, whom no mode of a folder keeps out";
  makeHostileTree(tree());
  sandbox_.makeFile("folder/other", "x");
  const auto status = fs::remove(tree() + "/");
  EXPECT_TRUE(status.ok()) << status.description();
  EXPECT_THAT(fs::list(sandbox_.path("folder")), Optional(ElementsAre("other")));
}

TEST_F(RemoveTest, ALinkGoesAndItsTargetStays) {
  sandbox_.makeFile("kept/file", "x");
  sandbox_.makeFile("folder/tree/file", "x");
  std::filesystem::create_symlink(sandbox_.path("kept"), tree() + "/link");
  std::filesystem::create_symlink(sandbox_.path("kept"), sandbox_.path("folder/link"));
  EXPECT_TRUE(fs::remove(sandbox_.path("folder/link")).ok());
  EXPECT_TRUE(fs::remove(tree()).ok());
  EXPECT_THAT(fs::list(sandbox_.path("folder")), Optional(ElementsAre()));
  EXPECT_EQ(readFile(sandbox_.path("kept/file")), "x");
}

TEST_F(RemoveTest, WhatIsMissingOrHasNoNameIsRefused) {
  EXPECT_EQ(fs::remove(sandbox_.path("missing")).code(), ENOENT);
  for (const char* path : {"", "/", "/tmp/..", "/tmp/.", "relative"}) {
    EXPECT_FALSE(fs::remove(path).ok()) << path;
  }
}

TEST_F(RemoveTest, WhatIsMountedInTheTreeStays) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string mounted = sandbox_.mountTmpfs("folder/tree/disk");
  const std::string file = sandbox_.makeFile("folder/tree/disk/file", "x");
  EXPECT_EQ(fs::remove(tree()).code(), EBUSY);
  EXPECT_EQ(readFile(file), "x");
  EXPECT_EQ(fs::remove(mounted).code(), EBUSY);

  const std::string bound = sandbox_.makeDirectory("folder/bound/in");
  sandbox_.makeFile("elsewhere/file", "x");
  ASSERT_EQ(::mount(sandbox_.path("elsewhere").c_str(), bound.c_str(), nullptr, MS_BIND, nullptr),
            0);
  EXPECT_EQ(fs::remove(sandbox_.path("folder/bound")).code(), EBUSY);
  EXPECT_EQ(readFile(sandbox_.path("elsewhere/file")), "x");
}

TEST_F(RemoveTest, AnOrdinaryUserIsToldWhichItemMayNotBeRemoved) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  const std::string home = sandbox_.homeOf(Sandbox::kConsoleUser);
  sandbox_.makeFile("home/anna/tree/foreign/file", "x");
  ASSERT_EQ(::chown((home + "/tree").c_str(), Sandbox::kConsoleUserId, 0), 0);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const auto status = fs::remove(home + "/tree");
  EXPECT_EQ(status.code(), EACCES);
  EXPECT_EQ(status.description(), home + "/tree/foreign/file: Permission denied");
  EXPECT_TRUE(fs::exists(home + "/tree/foreign/file"));
}

TEST_F(RemoveTest, AnEmptyFolderThatMayNotBeReadGoesAllTheSame) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox_.simulateMachine();
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  std::filesystem::create_directory(sandbox_.home() + "/closed");
  ASSERT_EQ(::chmod((sandbox_.home() + "/closed").c_str(), 0), 0);
  EXPECT_TRUE(fs::remove(sandbox_.home() + "/closed").ok());
}

TEST_F(RemoveTest, AnImmutableItemStopsTheRemoval) {
  const std::string file = sandbox_.makeFile("folder/tree/file", "x");
  if (!fs::setImmutable(file, true).ok()) GTEST_SKIP() << "needs the right to lock files";
  EXPECT_EQ(fs::remove(tree()).code(), EPERM);
  EXPECT_EQ(readFile(file), "x");
  EXPECT_TRUE(fs::setImmutable(file, false).ok());
  EXPECT_TRUE(fs::remove(tree()).ok());
}

TEST_F(RemoveTest, AFolderThatIsFilledMeanwhileIsEmptiedAgain) {
  sandbox_.makeDirectory("folder/tree/in");
  std::atomic<bool> stop = false;
  std::thread filler([&] {
    for (int i = 0; !stop && i < 2000; ++i) {
      const std::string path = tree() + "/in/" + std::to_string(i);
      const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
      if (file >= 0) ::close(file);
    }
  });
  const auto status = fs::remove(tree());
  stop = true;
  filler.join();
  EXPECT_TRUE(status.ok() || status.code() == ENOTEMPTY) << status.description();
  EXPECT_NE(status.ok(), fs::exists(tree()));
}

}  // namespace
