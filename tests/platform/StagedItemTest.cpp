#include "platform/linux/files/StagedItem.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/FileSystem.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = platform::file_system;
using platform::Location;
using platform::StagedItem;
using test::Sandbox;

class StagedItemTest : public testing::Test {
 protected:
  void grow(const StagedItem& item) const {
    ASSERT_EQ(::mkdirat(item.location().descriptor(), item.location().name.c_str(), 0700), 0);
    const std::string file = item.location().name + "/file";
    EXPECT_TRUE(posix::FileDescriptor(
        ::openat(item.location().descriptor(), file.c_str(), O_WRONLY | O_CREAT, 0600)));
  }
  std::vector<std::string> names() const { return fs::list(folder_).value(); }

  Sandbox sandbox_;
  const std::string folder_ = sandbox_.makeDirectory("folder");
  const Location target_ = platform::locate(folder_ + "/item");
};

TEST_F(StagedItemTest, ItGrowsHiddenBesideItsPlaceAndGetsItsName) {
  StagedItem item(target_, "growing");
  ASSERT_TRUE(item.status().ok());
  grow(item);
  ASSERT_EQ(names().size(), 1U);
  EXPECT_TRUE(names().front().starts_with(".growing-"));
  EXPECT_TRUE(item.sync().ok());
  EXPECT_TRUE(item.putInPlace().ok());
  EXPECT_EQ(names(), std::vector<std::string>{"item"});
}

TEST_F(StagedItemTest, WithoutItsNameItGoesAgainWithAllThatIsInIt) {
  {
    StagedItem item(target_, "growing");
    grow(item);
    ::fchmodat(item.location().descriptor(), item.location().name.c_str(), 0, 0);
  }
  EXPECT_TRUE(names().empty());
}

TEST_F(StagedItemTest, ANameThatIsTakenRefusesItAtTheBeginningAndAtTheEnd) {
  {
    StagedItem item(target_, "growing");
    grow(item);
    sandbox_.makeFile("folder/item", "another");
    EXPECT_EQ(item.putInPlace().code(), EEXIST);
  }
  EXPECT_EQ(StagedItem(target_, "growing").status().code(), EEXIST);
  EXPECT_EQ(names(), std::vector<std::string>{"item"});
  EXPECT_EQ(test::readFile(folder_ + "/item"), "another");
}

TEST_F(StagedItemTest, WhatIsTakenBackIsRemovedAfterAll) {
  {
    StagedItem item(target_, "growing");
    grow(item);
    ASSERT_TRUE(item.putInPlace().ok());
    item.takeBack();
    EXPECT_FALSE(fs::exists(folder_ + "/item"));
  }
  EXPECT_TRUE(names().empty());
}

}  // namespace
