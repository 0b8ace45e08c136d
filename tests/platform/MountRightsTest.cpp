#include "platform/linux/files/MountRights.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

#include <string>

#include "platform/FileSystem.h"
#include "platform/Workspace.h"
#include "tests/support/Sandbox.h"

namespace {

namespace fs = platform::file_system;
using test::Sandbox;
using testing::ElementsAre;
using testing::Optional;

// A disk with what gives rights: programs of the superuser's and a device.
class MountRightsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    disk_ = sandbox_.mountTmpfs("disk");
    const std::string program = sandbox_.makeFile("disk/tree/program", "x");
    ASSERT_EQ(::chmod(program.c_str(), 06755), 0);
    const std::string capable = sandbox_.makeFile("disk/tree/capable", "x");
    if (::setxattr(capable.c_str(), kCapability, kValue.data(), kValue.size(), 0) != 0 ||
        ::mknod((disk_ + "/tree/device").c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0) {
      GTEST_SKIP() << "needs the rights to make capabilities and devices";
    }
    ASSERT_EQ(::chmod((disk_ + "/tree").c_str(), 02755), 0);
  }

  void remountWith(unsigned long flags) const {
    ASSERT_EQ(::mount(nullptr, disk_.c_str(), nullptr, MS_REMOUNT | MS_BIND | flags, nullptr), 0);
  }
  static bool isCapable(const std::string& path) {
    return ::getxattr(path.c_str(), kCapability, nullptr, 0) > 0;
  }
  static void expectRights(const std::string& copy) {
    EXPECT_THAT(fs::list(copy), Optional(ElementsAre("capable", "device", "program")));
    EXPECT_EQ(fs::attributes(copy + "/program")->permissions, 06755U);
    EXPECT_TRUE(isCapable(copy + "/capable"));
  }
  static void expectNoRights(const std::string& copy) {
    EXPECT_THAT(fs::list(copy), Optional(ElementsAre("capable", "program")));
    EXPECT_EQ(fs::attributes(copy + "/program")->permissions, 0755U);
    EXPECT_FALSE(isCapable(copy + "/capable"));
    EXPECT_EQ(fs::attributes(copy)->permissions, 02755U) << "whose group, nobody's rights";
  }

  static constexpr char kCapability[] = "security.capability";
  // Version 2, cap_net_bind_service permitted and effective.
  const std::string kValue{"\x01\0\0\x02\0\x04\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20};
  Sandbox sandbox_;
  std::string disk_;
};

TEST_F(MountRightsTest, WhatADiskGivesTheCopyHasToo) {
  ASSERT_TRUE(fs::copy(disk_ + "/tree", sandbox_.path("copy")).ok());
  expectRights(sandbox_.path("copy"));
}

TEST_F(MountRightsTest, WhatADiskDoesNotGiveNoCopyHas) {
  remountWith(MS_NOSUID | MS_NODEV);
  ASSERT_TRUE(fs::copy(disk_ + "/tree", sandbox_.path("copy")).ok());
  expectNoRights(sandbox_.path("copy"));
  ASSERT_TRUE(fs::copy(disk_ + "/tree/program", sandbox_.path("program")).ok());
  EXPECT_EQ(fs::attributes(sandbox_.path("program"))->permissions, 0755U);
}

TEST_F(MountRightsTest, EachRightIsJudgedByItself) {
  remountWith(MS_NODEV);
  ASSERT_TRUE(fs::copy(disk_ + "/tree", sandbox_.path("copy")).ok());
  EXPECT_THAT(fs::list(sandbox_.path("copy")), Optional(ElementsAre("capable", "program")));
  EXPECT_EQ(fs::attributes(sandbox_.path("copy/program"))->permissions, 06755U);
}

TEST_F(MountRightsTest, RecyclingFromSuchADiskDropsThem) {
  remountWith(MS_NOSUID | MS_NODEV);
  const std::string trash = sandbox_.home() + "/.Trash";
  ASSERT_TRUE(platform::workspace::recycle(disk_, trash, {"tree"}));
  expectNoRights(trash + "/tree");
  EXPECT_FALSE(fs::exists(disk_ + "/tree"));
}

TEST_F(MountRightsTest, WhereItCannotBeToldThereAreNone) {
  const platform::MountRights rights = platform::rightsOfMount(-1);
  EXPECT_FALSE(rights.changeIdentity);
  EXPECT_FALSE(rights.devices);
}

}  // namespace
