#include "platform/linux/files/Leftovers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>

#include "platform/FileSystem.h"
#include "platform/linux/files/Location.h"
#include "platform/linux/files/TemporaryName.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = platform::file_system;
using platform::isTemporaryName;
using platform::temporaryName;
using test::Sandbox;
using testing::ElementsAre;
using testing::Optional;

TEST(TemporaryNameTest, ATemporaryNameIsKnownByItsPurposeAndItsDigits) {
  for (const char* purpose : {"archiving", "copying", "moving", "unpacking"}) {
    EXPECT_TRUE(isTemporaryName(temporaryName(purpose))) << purpose;
  }
  EXPECT_FALSE(isTemporaryName(temporaryName("links")));
  EXPECT_FALSE(isTemporaryName("copying-0123456789abcdef"));
  EXPECT_FALSE(isTemporaryName(".copying-0123456789abcde"));
  EXPECT_FALSE(isTemporaryName(".copying-0123456789abcdeg"));
  EXPECT_FALSE(isTemporaryName(".copying-0123456789abcdef0"));
  EXPECT_FALSE(isTemporaryName(".copying"));
  EXPECT_FALSE(isTemporaryName(""));
}

class LeftoversTest : public testing::Test {
 protected:
  std::string leave(const std::string& purpose) const {
    const std::string name = temporaryName(purpose);
    sandbox_.makeFile("folder/" + name + "/locked/file", "x");
    EXPECT_EQ(::chmod((folder_ + "/" + name + "/locked").c_str(), 0555), 0);
    return name;
  }
  void remove(std::time_t days) const {
    const platform::Location place = platform::locate(folder_ + "/item");
    platform::removeLeftovers(place.descriptor(), std::time(nullptr) + days * 24 * 60 * 60);
  }

  Sandbox sandbox_;
  const std::string folder_ = sandbox_.makeDirectory("folder");
};

TEST_F(LeftoversTest, WhatAKilledProcessLeftIsRemovedAfterADay) {
  leave("copying");
  leave("moving");
  sandbox_.makeFile("folder/.hidden");
  sandbox_.makeFile("folder/.copying-by-hand");
  remove(2);
  EXPECT_THAT(fs::list(folder_), Optional(ElementsAre(".copying-by-hand", ".hidden")));
}

TEST_F(LeftoversTest, WhatMayBeInTheMakingStays) {
  const std::string name = leave("copying");
  using std::filesystem::file_time_type;
  std::filesystem::last_write_time(folder_ + "/" + name,
                                   file_time_type::clock::now() - std::chrono::hours(48));
  remove(0);
  EXPECT_THAT(fs::list(folder_), Optional(ElementsAre(name)));
}

TEST_F(LeftoversTest, WhatIsSomebodyElsesStays) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string name = leave("copying");
  const std::string path = folder_ + "/" + name;
  ASSERT_EQ(::lchown(path.c_str(), Sandbox::kConsoleUserId, Sandbox::kConsoleUserId), 0);
  remove(2);
  EXPECT_THAT(fs::list(folder_), Optional(ElementsAre(name)));
}

TEST_F(LeftoversTest, AFolderIsOnlyLookedIntoOnce) {
  remove(2);
  const std::string name = leave("copying");
  remove(2);
  EXPECT_THAT(fs::list(folder_), Optional(ElementsAre(name)));
}

}  // namespace
