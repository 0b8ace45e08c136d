#include "platform/Clock.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>

namespace {

using platform::clock::Seconds;

constexpr Seconds kPause(0.05);

// How often this thread has given its processor away of its own accord.
long waitsOfThread() {
  rusage usage{};
  ::getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

template <class Pause>
Seconds lengthOf(Pause pause) {
  const auto begin = std::chrono::steady_clock::now();
  pause(kPause);
  return std::chrono::steady_clock::now() - begin;
}

TEST(ClockTest, SpinningKeepsItsProcessorTheWholeTime) {
  const long before = waitsOfThread();
  EXPECT_GE(lengthOf(platform::clock::spin), kPause);
  EXPECT_EQ(waitsOfThread(), before);
}

TEST(ClockTest, SleepingGivesItsProcessorAway) {
  const long before = waitsOfThread();
  EXPECT_GE(lengthOf(platform::clock::sleep), kPause);
  EXPECT_GT(waitsOfThread(), before);
}

TEST(ClockTest, APauseOfNothingReturnsAtOnce) {
  for (const Seconds nothing : {Seconds(0), Seconds(-1)}) {
    const auto begin = std::chrono::steady_clock::now();
    platform::clock::sleep(nothing);
    platform::clock::spin(nothing);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  }
}

}  // namespace
