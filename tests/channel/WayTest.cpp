#include "channel/Way.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;
using channel::End;
using channel::Way;
using channel::wayTo;
using test::Sandbox;

class WayTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    home_ = annas(sandbox_.makeDirectory("anna"));
    roots_ = sandbox_.makeDirectory("roots");
  }

  std::string annas(const std::string& path) const {
    EXPECT_EQ(::lchown(path.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
    return path;
  }
  std::string link(const std::string& path, const std::string& target) const {
    fs::create_symlink(target, path);
    return path;
  }

  Sandbox sandbox_;
  std::string home_;
  std::string roots_;
};

TEST_F(WayTest, WhatRootMadeIsRootsAlone) {
  EXPECT_TRUE(wayTo("/", End::meant).isRootsAlone());
  EXPECT_TRUE(wayTo(roots_ + "/missing/too", End::meant).isRootsAlone());
  const std::string file = annas(sandbox_.makeFile("roots/annas"));
  EXPECT_TRUE(wayTo(file, End::meant).isRootsAlone()) << "a file leads nowhere";
}

TEST_F(WayTest, AFolderOfSomebodyElseIsABorder) {
  EXPECT_EQ(wayTo(home_ + "/a/b", End::meant).border, home_);
  EXPECT_EQ(wayTo(home_, End::meant).border, home_);
  const std::string open = sandbox_.makeDirectory("open");
  fs::permissions(open, fs::perms(0775));
  EXPECT_EQ(wayTo(open + "/x", End::meant).border, open);
}

TEST_F(WayTest, WhereAllMayMakeItemsThoseOfRootStayWhatTheyAre) {
  const std::string open = sandbox_.makeDirectory("open/roots");
  fs::permissions(sandbox_.path("open"), fs::perms(01777));
  EXPECT_TRUE(wayTo(open + "/x", End::meant).isRootsAlone());
  EXPECT_EQ(wayTo(sandbox_.path("open/new"), End::meant).border, sandbox_.path("open"));
}

TEST_F(WayTest, LinksOfRootsAreFollowedAndThoseOfOthersOnlyToTheirOwnersFolders) {
  const std::string mine = annas(sandbox_.makeDirectory("anna/mine"));
  annas(link(home_ + "/own", mine));
  annas(link(home_ + "/evil", roots_));
  link(sandbox_.path("roots-link"), roots_);
  EXPECT_EQ(wayTo(home_ + "/own/x", End::meant).resolved, mine + "/x");
  EXPECT_EQ(wayTo(home_ + "/evil/x", End::meant).status, EACCES);
  EXPECT_EQ(wayTo(sandbox_.path("roots-link/x"), End::meant).resolved, roots_ + "/x");
  annas(link(home_ + "/to-evil", home_ + "/evil"));
  EXPECT_EQ(wayTo(home_ + "/to-evil/x", End::meant).status, EACCES);
  annas(link(home_ + "/loop", home_ + "/loop"));
  EXPECT_EQ(wayTo(home_ + "/loop/x", End::meant).status, ELOOP);
}

TEST_F(WayTest, ALinkAtTheEndIsMeantItselfUnlessAFolderIsToBeEntered) {
  const std::string mine = annas(sandbox_.makeDirectory("anna/mine"));
  const std::string own = annas(link(home_ + "/own", mine));
  EXPECT_EQ(wayTo(own, End::meant).resolved, own);
  EXPECT_EQ(wayTo(own, End::entered).resolved, mine);
  EXPECT_TRUE(wayTo(own, End::entered).isEntered);
  annas(link(home_ + "/evil", roots_));
  EXPECT_EQ(wayTo(home_ + "/evil", End::entered).status, EACCES);
}

TEST_F(WayTest, NoWayLeadsBackOutOfAFolderOfSomebodyElse) {
  EXPECT_EQ(wayTo(home_ + "/../roots/x", End::meant).status, EACCES);
  EXPECT_EQ(wayTo(home_ + "/missing/../x", End::meant).status, EACCES);
  EXPECT_EQ(wayTo(roots_ + "/../roots/./x//", End::meant).resolved, roots_ + "/x");
}

}  // namespace
