#include "archiver/EntryPath.h"

#include <gtest/gtest.h>

namespace {

using archiver::entryPath;
using archiver::namesOutside;

TEST(EntryPathTest, ANameInsideTheFolderIsItsPath) {
  EXPECT_EQ(entryPath("file"), "file");
  EXPECT_EQ(entryPath("a/b/c"), "a/b/c");
  EXPECT_EQ(entryPath("folder/"), "folder");
  EXPECT_EQ(entryPath("./a//./b/"), "a/b");
  EXPECT_EQ(entryPath("..."), "...");
  EXPECT_EQ(entryPath(".hidden/..also"), ".hidden/..also");
}

TEST(EntryPathTest, EveryOtherByteIsPartOfAName) {
  for (const char* name : {"line\nbreak", "\xFF\xFE", "back\\slash", "C:", "~", " ", "\x01"}) {
    EXPECT_EQ(entryPath(name), name);
  }
}

TEST(EntryPathTest, ANameThatLeadsOutIsNone) {
  for (const char* name :
       {"", "/", "/etc/passwd", "//x", "..", "../x", "a/../../x", "a/..", "a/b/.."}) {
    EXPECT_EQ(entryPath(name), std::nullopt) << name;
  }
}

TEST(EntryPathTest, TheFolderItselfIsTheEmptyPath) {
  EXPECT_EQ(entryPath("./"), "");
  EXPECT_EQ(entryPath("."), "");
}

TEST(EntryPathTest, ALinkMayLeadUpAsFarAsThereAreFolders) {
  EXPECT_FALSE(namesOutside("link", "file"));
  EXPECT_FALSE(namesOutside("link", "."));
  EXPECT_FALSE(namesOutside("a/b/link", "../../file"));
  EXPECT_FALSE(namesOutside("a/b/link", "../.."));
  EXPECT_FALSE(namesOutside("a/link", "x/../../file"));
}

TEST(EntryPathTest, ALinkThatIsAbsoluteOrLeadsFurtherUpNamesAPlaceOutside) {
  for (const char* target : {"/", "/etc", "..", "../x", "x/../..", "./..", "x/../../y"}) {
    EXPECT_TRUE(namesOutside("link", target)) << target;
  }
  EXPECT_TRUE(namesOutside("a/b/link", "../../.."));
  EXPECT_TRUE(namesOutside("a/link", "../b/../../c"));
}

}  // namespace
