#include "platform/Date.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

namespace {

namespace date = platform::date;

date::Date at(long seconds) {
  return date::Date(std::chrono::seconds(seconds));
}

TEST(DateTest, IsDescribedInLocalTimeWithTheZonesOffset) {
  ::setenv("TZ", "CET-1", 1);
  EXPECT_EQ(date::description(at(1795206071)), "2026-11-20 21:21:11 +0100");
  EXPECT_EQ(date::timeStamp(at(1795206071)), "20261120212111");
}

TEST(DateTest, FollowsAChangeOfZone) {
  ::setenv("TZ", "UTC0", 1);
  EXPECT_EQ(date::description(at(0)), "1970-01-01 00:00:00 +0000");
  ::setenv("TZ", "NST3:30", 1);
  EXPECT_EQ(date::description(at(0)), "1969-12-31 20:30:00 -0330");
  ::setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
  EXPECT_EQ(date::description(at(1782907200)), "2026-07-01 08:00:00 -0400");
}

TEST(DateTest, FractionsAreCutOff) {
  ::setenv("TZ", "UTC0", 1);
  EXPECT_EQ(date::description(at(5) + std::chrono::milliseconds(999)), "1970-01-01 00:00:05 +0000");
  EXPECT_EQ(date::description(at(0) - std::chrono::milliseconds(1)), "1969-12-31 23:59:59 +0000");
}

TEST(DateTest, DoesNotFollowTheLocale) {
  ::setenv("TZ", "UTC0", 1);
  std::setlocale(LC_ALL, "fa_IR.UTF-8");
  EXPECT_EQ(date::description(at(0)), "1970-01-01 00:00:00 +0000");
}

}  // namespace
