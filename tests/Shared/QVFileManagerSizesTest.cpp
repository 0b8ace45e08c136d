#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cmath>
#include <filesystem>
#include <limits>

#include "Shared/QVFileManager.h"
#include "tests/support/Sandbox.h"

namespace {

using std::filesystem::create_directory_symlink;
using std::filesystem::create_symlink;
using test::Sandbox;

std::string formatted(double size) {
  return QVFileManager::formatFileSize(size);
}

class QVFileManagerSizesTest : public testing::Test {
 protected:
  void file(const std::string& relative, std::size_t size) const {
    sandbox_.makeFile(relative, std::string(size, 'x'));
  }
  std::int64_t size(const std::string& relative) const {
    return QVFileManager::fileSize(sandbox_.path(relative));
  }
  bool empty(const std::string& relative) const {
    return QVFileManager::isFolderEmpty(sandbox_.path(relative));
  }

  Sandbox sandbox_;
};

TEST_F(QVFileManagerSizesTest, AFoldersSizeIsThatOfTheFilesInIt) {
  file("tree/ten", 10);
  file("tree/in/deep/twenty", 20);
  sandbox_.makeDirectory("tree/empty");
  EXPECT_EQ(size("tree"), 30);
  EXPECT_EQ(size("tree/ten"), 10);
  EXPECT_EQ(size("tree/empty"), 0);
  EXPECT_EQ(size("missing"), 0);
  EXPECT_EQ(QVFileManager::fileSize(""), 0);
}

TEST_F(QVFileManagerSizesTest, ALinkToAFolderIsFollowedAndAnyOtherLinkIsNot) {
  file("elsewhere/hundred", 100);
  sandbox_.makeDirectory("tree");
  create_directory_symlink(sandbox_.path("elsewhere"), sandbox_.path("tree/folder"));
  EXPECT_EQ(size("tree"), 100);
  EXPECT_EQ(size("tree/folder"), 100);
  create_symlink("seven__", sandbox_.path("tree/dangling"));
  create_symlink("../elsewhere/hundred", sandbox_.path("tree/file"));
  EXPECT_EQ(size("tree/dangling"), 7);
  EXPECT_EQ(size("tree/file"), 20);
  EXPECT_EQ(size("tree"), 127);
}

TEST_F(QVFileManagerSizesTest, AFolderThatTwoLinksLeadToCountsTwice) {
  file("elsewhere/hundred", 100);
  sandbox_.makeDirectory("tree");
  create_directory_symlink("../elsewhere", sandbox_.path("tree/one"));
  create_directory_symlink("../elsewhere", sandbox_.path("tree/two"));
  EXPECT_EQ(size("tree"), 200);
}

TEST_F(QVFileManagerSizesTest, ALoopOfLinksEnds) {
  file("tree/a/ten", 10);
  file("tree/b/ten", 10);
  create_directory_symlink("../b", sandbox_.path("tree/a/link"));
  create_directory_symlink("../a", sandbox_.path("tree/b/link"));
  create_directory_symlink("..", sandbox_.path("tree/a/up"));
  EXPECT_GE(size("tree"), 20);
}

// Each level leads to the next by two links, which makes 2^40 ways to the last one.
TEST_F(QVFileManagerSizesTest, ALinkForestDoesNotTakeForever) {
  for (int level = 0; level < 39; ++level) {
    const std::string folder = "tree/" + std::to_string(level);
    sandbox_.makeDirectory(folder);
    const std::string next = "../" + std::to_string(level + 1);
    create_directory_symlink(next, sandbox_.path(folder + "/one"));
    create_directory_symlink(next, sandbox_.path(folder + "/two"));
  }
  file("tree/39/file", 1);
  EXPECT_EQ(size("tree/0"), 1LL << 39);
}

TEST_F(QVFileManagerSizesTest, AnUnreadableFolderCountsAsNothing) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  file("tree/closed/ten", 10);
  ASSERT_EQ(::chmod(sandbox_.path("tree/closed").c_str(), 0700), 0);
  sandbox_.simulateMachine();
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  EXPECT_EQ(size("tree"), 0);
  EXPECT_EQ(size("tree/closed"), 0);
}

TEST_F(QVFileManagerSizesTest, HousekeepingFilesAndEmptyFoldersAreNothing) {
  sandbox_.makeDirectory("empty");
  EXPECT_TRUE(empty("empty"));
  file("housekeeping/.DS_Store", 5);
  EXPECT_TRUE(empty("housekeeping"));
  file("icon/Icon\r", 5);
  EXPECT_TRUE(empty("icon"));
  sandbox_.makeDirectory("housekeeping/folder/folder");
  file("housekeeping/folder/Icon\r", 5);
  EXPECT_TRUE(empty("housekeeping"));
  EXPECT_TRUE(empty("missing"));
}

TEST_F(QVFileManagerSizesTest, AnyOtherFileAtAnyDepthIsSomething) {
  file("tree/Icon", 0);
  EXPECT_FALSE(empty("tree"));
  file("deep/in/folder/file", 0);
  EXPECT_FALSE(empty("deep"));
  file("store/.DS_Store", 5);
  file("store/.ds_store", 5);
  EXPECT_FALSE(empty("store"));
}

TEST_F(QVFileManagerSizesTest, LinksCountByWhatTheyLeadTo) {
  sandbox_.makeDirectory("nothing");
  sandbox_.makeDirectory("linking");
  create_directory_symlink("../nothing", sandbox_.path("linking/link"));
  EXPECT_TRUE(empty("linking"));
  create_symlink("nowhere", sandbox_.path("linking/dangling"));
  EXPECT_FALSE(empty("linking"));
  sandbox_.makeDirectory("loop");
  create_directory_symlink("../loop", sandbox_.path("loop/link"));
  EXPECT_FALSE(empty("loop"));
}

TEST(QVFileManagerFormatSizeTest, EachUnitBeginsAt1024OfTheLast) {
  EXPECT_EQ(formatted(0), "0 B");
  EXPECT_EQ(formatted(1023), "1023 B");
  EXPECT_EQ(formatted(1024), "1.00 KB");
  EXPECT_EQ(formatted(1536), "1.50 KB");
  EXPECT_EQ(formatted(1048576), "1.00 MB");
  EXPECT_EQ(formatted(1073741824), "1.00 GB");
  EXPECT_EQ(formatted(1099511627776.0 * 5), "5120.00 GB");
}

// What is just too little for the next unit is still rounded to its beginning.
TEST(QVFileManagerFormatSizeTest, TheUnitIsChosenBeforeTheNumberIsRounded) {
  EXPECT_EQ(formatted(1023.9), "1024 B");
  EXPECT_EQ(formatted(1048575), "1024.00 KB");
  EXPECT_EQ(formatted(1073741823), "1024.00 MB");
}

TEST(QVFileManagerFormatSizeTest, NegativeSizesAreInBytes) {
  EXPECT_EQ(formatted(-1), "-1 B");
  EXPECT_EQ(formatted(-5e9), "-5000000000 B");
}

TEST(QVFileManagerFormatSizeTest, WhatIsNoNumberIsInGigabytes) {
  EXPECT_EQ(formatted(std::nan("")), "nan GB");
  EXPECT_EQ(formatted(std::numeric_limits<double>::infinity()), "inf GB");
}

TEST(QVFileManagerFormatSizeTest, TheDecimalPointIsOneInEveryLocale) {
  const Sandbox sandbox;
  const std::string make = "localedef -c -i de_DE -f ISO-8859-1 " + sandbox.path("de_DE");
  if (std::system(make.c_str()) != 0) GTEST_SKIP() << "no locale can be made here";
  ::setenv("LOCPATH", sandbox.root().c_str(), 1);
  ASSERT_NE(std::setlocale(LC_ALL, "de_DE"), nullptr);
  EXPECT_EQ(formatted(1536), "1.50 KB");
}

}  // namespace
