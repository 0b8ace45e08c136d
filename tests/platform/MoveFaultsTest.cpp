#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "platform/FileSystem.h"
#include "tests/support/FailingCall.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = platform::file_system;
using test::failCall;
using test::readFile;
using test::Sandbox;
using test::waitFor;
using testing::ElementsAre;
using testing::Optional;

// Moves to another file system, and within one that cannot do everything.
class MoveFaultsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    disk_ = sandbox_.mountTmpfs("disk");
    ASSERT_EQ(::chmod(disk_.c_str(), 01777), 0);
    sandbox_.makeFile("from/tree/file", "x");
  }

  fs::Attributes attributesOf(const std::string& path) const {
    return fs::attributes(path).value();
  }
  std::string tree() const { return sandbox_.path("from/tree"); }
  void expectAllAtItsOldPlace() const {
    EXPECT_EQ(readFile(tree() + "/file"), "x");
    EXPECT_THAT(fs::list(sandbox_.path("from")), Optional(ElementsAre("tree")));
    EXPECT_THAT(fs::list(disk_), Optional(ElementsAre()));
  }

  Sandbox sandbox_;
  std::string disk_;
};

TEST_F(MoveFaultsTest, WhatCannotBeWrittenToTheDiskStaysWhereItWas) {
  failCall(SYS_syncfs, EIO);
  EXPECT_EQ(fs::move(tree(), disk_ + "/tree").code(), EIO);
  expectAllAtItsOldPlace();
}

TEST_F(MoveFaultsTest, WhatCannotHaveItsNewNameOnTheDiskStaysWhereItWas) {
  failCall(SYS_fsync, EIO);
  EXPECT_EQ(fs::move(tree(), disk_ + "/tree").code(), EIO);
  expectAllAtItsOldPlace();
}

// The copy waits for a file on which somebody has a lease; meanwhile another folder takes its
// place.
TEST_F(MoveFaultsTest, AnotherItemThatTookTheSourcesPlaceStays) {
  const int held = ::open((tree() + "/file").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(::fcntl(held, F_SETSIG, 0), 0);
  std::signal(SIGIO, SIG_IGN);
  ASSERT_EQ(::fcntl(held, F_SETLEASE, F_WRLCK), 0);
  std::thread other([&] {
    EXPECT_TRUE(waitFor([&] { return !fs::list(disk_)->empty(); }));
    std::filesystem::rename(tree(), sandbox_.path("taken"));
    sandbox_.makeFile("from/tree/other", "y");
    ::fcntl(held, F_SETLEASE, F_UNLCK);
  });
  EXPECT_EQ(fs::move(tree(), disk_ + "/tree").code(), ESTALE);
  other.join();
  ::close(held);
  EXPECT_EQ(readFile(tree() + "/other"), "y");
  EXPECT_THAT(fs::list(sandbox_.path("from")), Optional(ElementsAre("tree")));
  EXPECT_THAT(fs::list(disk_), Optional(ElementsAre()));
}

TEST_F(MoveFaultsTest, AFolderThatMayNotBeWrittenLeavesNoHiddenRemainder) {
  sandbox_.makeFile("from/tree/locked/file", "x");
  ASSERT_EQ(std::system(("chown -R 61001:61001 " + sandbox_.path("from")).c_str()), 0);
  ASSERT_EQ(::chmod((tree() + "/locked").c_str(), 0555), 0);
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_TRUE(fs::move(tree(), disk_ + "/tree").ok());
  EXPECT_THAT(fs::list(sandbox_.path("from")), Optional(ElementsAre()));
  EXPECT_EQ(attributesOf(disk_ + "/tree/locked").permissions, 0555U);
}

TEST_F(MoveFaultsTest, WithoutTheSystemsExclusiveRenameNoEmptyFolderIsReplaced) {
  const std::string empty = sandbox_.makeDirectory("empty");
  failCall(SYS_renameat2, EINVAL);
  EXPECT_EQ(fs::move(tree(), empty).code(), EEXIST);
  EXPECT_EQ(readFile(tree() + "/file"), "x");
  EXPECT_EQ(fs::move(tree() + "/file", sandbox_.makeFile("taken", "y")).code(), EEXIST);
  EXPECT_EQ(readFile(sandbox_.path("taken")), "y");
  EXPECT_TRUE(fs::move(tree(), sandbox_.path("free")).ok());
  EXPECT_EQ(readFile(sandbox_.path("free/file")), "x");
}

}  // namespace
