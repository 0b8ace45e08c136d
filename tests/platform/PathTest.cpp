#include "platform/Path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace path = platform::path;

TEST(PathTest, TheLastComponentHasNoSlashes) {
  EXPECT_EQ(path::lastComponent("/x/A.app/"), "A.app");
  EXPECT_EQ(path::lastComponent("/x/A.app"), "A.app");
  EXPECT_EQ(path::lastComponent("/x/A.app///"), "A.app");
  EXPECT_EQ(path::lastComponent("A.app"), "A.app");
  EXPECT_EQ(path::lastComponent("/A"), "A");
}

TEST(PathTest, TheLastComponentOfTheRootIsTheRoot) {
  EXPECT_EQ(path::lastComponent("/"), "/");
  EXPECT_EQ(path::lastComponent("///"), "/");
  EXPECT_EQ(path::lastComponent(""), "");
}

TEST(PathTest, DeletingTheLastComponentLeavesTheFolder) {
  EXPECT_EQ(path::deletingLastComponent("/x/A.app/"), "/x");
  EXPECT_EQ(path::deletingLastComponent("/x/A.app"), "/x");
  EXPECT_EQ(path::deletingLastComponent("/x//A.app"), "/x");
  EXPECT_EQ(path::deletingLastComponent("x/y"), "x");
}

TEST(PathTest, DeletingTheLastComponentStopsAtTheRoot) {
  EXPECT_EQ(path::deletingLastComponent("/x"), "/");
  EXPECT_EQ(path::deletingLastComponent("/"), "/");
  EXPECT_EQ(path::deletingLastComponent("//x"), "/");
  EXPECT_EQ(path::deletingLastComponent("x"), "");
  EXPECT_EQ(path::deletingLastComponent(""), "");
}

TEST(PathTest, AppendingJoinsByExactlyOneSlash) {
  EXPECT_EQ(path::appending("/x", "y"), "/x/y");
  EXPECT_EQ(path::appending("/x/", "y"), "/x/y");
  EXPECT_EQ(path::appending("/x", "/y"), "/x/y");
  EXPECT_EQ(path::appending("/x//", "//y/"), "/x/y");
  EXPECT_EQ(path::appending("/", "y"), "/y");
  EXPECT_EQ(path::appending("/x", "y/z"), "/x/y/z");
}

TEST(PathTest, AppendingToOrOfNothingGivesTheOther) {
  EXPECT_EQ(path::appending("", "y"), "y");
  EXPECT_EQ(path::appending("", "y/"), "y");
  EXPECT_EQ(path::appending("/x", ""), "/x");
  EXPECT_EQ(path::appending("/x", "/"), "/x");
  EXPECT_EQ(path::appending("/x/", ""), "/x");
  EXPECT_EQ(path::appending("/", ""), "/");
  EXPECT_EQ(path::appending("", ""), "");
}

TEST(PathTest, AppendingToNoneGivesNone) {
  const std::optional<std::string> none;
  EXPECT_EQ(path::appending(none, "y"), std::nullopt);
  EXPECT_EQ(path::appending(std::optional<std::string>("/x"), "y"), "/x/y");
}

TEST(PathTest, AnAbsolutePathBeginsWithTheRootAsAComponent) {
  EXPECT_THAT(path::components("/x/a"), ElementsAre("/", "x", "a"));
  EXPECT_THAT(path::components("x/a"), ElementsAre("x", "a"));
  EXPECT_THAT(path::components("//x///a"), ElementsAre("/", "x", "a"));
  EXPECT_THAT(path::components("/x/./.."), ElementsAre("/", "x", ".", ".."));
}

TEST(PathTest, ATrailingSlashIsAComponent) {
  EXPECT_THAT(path::components("/x/a/"), ElementsAre("/", "x", "a", "/"));
  EXPECT_THAT(path::components("a//"), ElementsAre("a", "/"));
  EXPECT_THAT(path::components("/"), ElementsAre("/"));
  EXPECT_THAT(path::components("//"), ElementsAre("/"));
  EXPECT_THAT(path::components(""), IsEmpty());
}

TEST(PathTest, TheExtensionFollowsTheLastDot) {
  EXPECT_EQ(path::extension("/x/A.app"), "app");
  EXPECT_EQ(path::extension("/x/A.app/"), "app");
  EXPECT_EQ(path::extension("/x/a.tar.gz"), "gz");
  EXPECT_EQ(path::extension("/x/a..gz"), "gz");
  EXPECT_EQ(path::extension("/x.y/a"), "");
}

TEST(PathTest, ADotAtEitherEndBeginsNoExtension) {
  EXPECT_EQ(path::extension(".profile"), "");
  EXPECT_EQ(path::extension("/x/.profile"), "");
  EXPECT_EQ(path::extension("a."), "");
  EXPECT_EQ(path::extension("."), "");
  EXPECT_EQ(path::extension(""), "");
  EXPECT_EQ(path::extension("/"), "");
}

TEST(PathTest, DeletingTheExtensionTakesItsDotAlong) {
  EXPECT_EQ(path::deletingExtension("/x/A.app/"), "/x/A");
  EXPECT_EQ(path::deletingExtension("/x/a.tar.gz"), "/x/a.tar");
  EXPECT_EQ(path::deletingExtension("A.app"), "A");
}

TEST(PathTest, ANameWithoutExtensionStaysWhole) {
  EXPECT_EQ(path::deletingExtension("/x.y/a"), "/x.y/a");
  EXPECT_EQ(path::deletingExtension("/x/.profile"), "/x/.profile");
  EXPECT_EQ(path::deletingExtension("/x/a."), "/x/a.");
  EXPECT_EQ(path::deletingExtension("/"), "/");
  EXPECT_EQ(path::deletingExtension(""), "");
}

TEST(PathTest, BytesThatAreNotUtf8PassThrough) {
  EXPECT_EQ(path::lastComponent("/x/\xff\xc3.app/"), "\xff\xc3.app");
  EXPECT_EQ(path::deletingExtension("/\xf0\x9f.app"), "/\xf0\x9f");
}

TEST(PathTest, OnlyAnAbsolutePathThatEndsInANameNamesAnItem) {
  for (const char* path : {"/a", "/x/A.app", "/x/A.app/", "/x//.hidden", "/..x", "/x/../y"}) {
    EXPECT_TRUE(path::namesItem(path)) << path;
  }
  for (const char* path :
       {"", "/", "//", "a", "x/a", "-f", ".", "..", "/.", "/..", "/x/.", "/x/..", "/x/../"}) {
    EXPECT_FALSE(path::namesItem(path)) << path;
  }
  EXPECT_FALSE(path::namesItem(std::nullopt));
}

}  // namespace
