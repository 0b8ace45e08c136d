#include "channel/NamedPaths.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Sandbox.h"

namespace {

namespace fs = std::filesystem;
using channel::namedPaths;
using test::Sandbox;

bool meet(const std::vector<std::string>& some, const std::vector<std::string>& others) {
  const bool result = channel::overlap(namedPaths(some), namedPaths(others));
  EXPECT_EQ(channel::overlap(namedPaths(others), namedPaths(some)), result);
  return result;
}

TEST(NamedPathsTest, OnlyAbsoluteArgumentsNamePaths) {
  EXPECT_THAT(namedPaths({"-f", "x", "", "relative/path"}), testing::IsEmpty());
  EXPECT_THAT(namedPaths({"-f", "/no/such"}), testing::ElementsAre("/no/such"));
}

TEST(NamedPathsTest, EqualInnerAndOuterPathsMeet) {
  EXPECT_TRUE(meet({"/x/A.app"}, {"/x/A.app"}));
  EXPECT_TRUE(meet({"/x/A.app"}, {"/x"}));
  EXPECT_TRUE(meet({"-f", "/x/A.app", "/t/A.app"}, {"/m/A.app", "/x"}));
  EXPECT_TRUE(meet({"/"}, {"/x"}));
  EXPECT_TRUE(meet({"/x//A.app/"}, {"/x/./b/../A.app"}));
}

TEST(NamedPathsTest, PathsBesideEachOtherDoNotMeet) {
  EXPECT_FALSE(meet({"/x/A.app"}, {"/x/B.app"}));
  EXPECT_FALSE(meet({"/x/A.app"}, {"/x/A.app2"}));
  EXPECT_FALSE(meet({}, {"/"}));
}

TEST(NamedPathsTest, TwoNamesOfOneFolderMeet) {
  const Sandbox sandbox;
  const std::string folder = sandbox.makeDirectory("files");
  const std::string link = sandbox.path("link");
  fs::create_directory_symlink(folder, link);
  EXPECT_TRUE(meet({link + "/A.app"}, {folder + "/A.app"}));
  EXPECT_TRUE(meet({link}, {folder}));
  EXPECT_TRUE(meet({link}, {sandbox.root()})) << "the link itself lies there";
}

}  // namespace
