#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/Privilege.h"

// Whoever starts the helper says what others may do with what it makes.
namespace {

mode_t umaskAfter(mode_t before) {
  ::umask(before);
  platform::privilege::protectProcess();
  return ::umask(before);
}

TEST(OpenUmaskTest, WhatTheHelperMakesOthersMayNotWriteTo) {
  EXPECT_EQ(umaskAfter(0), 022U);
  EXPECT_EQ(umaskAfter(002), 022U);
}

TEST(OpenUmaskTest, AStricterOneStays) {
  EXPECT_EQ(umaskAfter(077), 077U);
}

}  // namespace
