#include "sessionhelper/MountTable.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using session_helper::deviceMountedAt;
using session_helper::isMountPoint;
using session_helper::unescaped;

constexpr char kTable[] =
    "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "36 22 7:0 / /Volumes/My\\040Disk\\134one rw - squashfs /dev/loop0 ro\n"
    "37 22 0:5 /inner\\040root /mnt rw - tmpfs /mnt/source rw\n"
    "38 22 0:6 / /odd\vname\r rw - tmpfs none rw\n";

bool isListed(const std::string& path) {
  std::istringstream table(kTable);
  return isMountPoint(path, table);
}

TEST(MountTableTest, WhatIsMountedThereIsFoundUnderItsName) {
  EXPECT_TRUE(isListed("/"));
  EXPECT_TRUE(isListed("/Volumes/My Disk\\one"));
  EXPECT_TRUE(isListed("/mnt"));
  EXPECT_TRUE(isListed("/odd\vname\r"));
}

TEST(MountTableTest, NothingElseIsAMountPoint) {
  for (const char* path : {"", "/Volumes", "/Volumes/My\\040Disk\\134one", "/inner root", "/mnt/",
                           "/mnt/source", "/dev/sda1", "rw", "/odd"}) {
    EXPECT_FALSE(isListed(path)) << path;
  }
}

TEST(MountTableTest, ALineThatIsCutShortIsNoMount) {
  std::istringstream table("22 1 8:1 /\n22 1\n\n \n22 1 8:1 / ");
  EXPECT_FALSE(isMountPoint("/", table));
  EXPECT_FALSE(isMountPoint("", table));
}

TEST(MountTableTest, TheDeviceIsThatOfWhatWasMountedLast) {
  std::istringstream table(std::string(kTable) + "39 37 7:12 / /mnt rw - ext4 /dev/loop12 rw\n");
  EXPECT_EQ(deviceMountedAt("/mnt", table), "7:12");
}

TEST(MountTableTest, NothingHasNoDevice) {
  for (const char* path : {"", "/Volumes", "/mnt/source"}) {
    std::istringstream table(kTable);
    EXPECT_EQ(deviceMountedAt(path, table), "") << path;
  }
}

TEST(MountTableTest, OnlyThreeOctalDigitsAreAnEscape) {
  EXPECT_EQ(unescaped("a\\040b\\011\\012\\134"), "a b\t\n\\");
  EXPECT_EQ(unescaped("\\04"), "\\04");
  EXPECT_EQ(unescaped("\\048"), "\\048");
  EXPECT_EQ(unescaped("\\x20\\"), "\\x20\\");
  EXPECT_EQ(unescaped("\\134040"), "\\040");
  EXPECT_EQ(unescaped(""), "");
}

}  // namespace
