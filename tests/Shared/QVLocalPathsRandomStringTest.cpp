#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <thread>
#include <vector>

#include "Shared/QVLocalPaths.h"

namespace {

std::atomic<std::clock_t> processorTime = 0;
std::atomic<std::time_t> date = 0;

}  // namespace

// In place of the C library's own: a test says what time it is.
extern "C" std::clock_t clock() noexcept {
  return processorTime;
}
extern "C" std::time_t time(std::time_t* result) noexcept {
  if (result != nullptr) *result = date;
  return date;
}

namespace {

std::string drawnWithSeed(unsigned seed, int length) {
  std::srand(seed);
  std::string result;
  for (int i = 0; i < length; ++i) {
    result += "abcdefghijklmnopqrstuvwxyz0123456789"[std::rand() % 36];
  }
  return result;
}

TEST(QVLocalPathsRandomStringTest, TheSeedIsProcessorTimeTimesDateIn32Bits) {
  processorTime = 123'456;
  date = 1'321'790'400;
  const unsigned seed = 123'456U * 1'321'790'400U;
  EXPECT_EQ(QVLocalPaths::randomString(12), drawnWithSeed(seed, 12));
}

TEST(QVLocalPathsRandomStringTest, EveryCallInOneTickAndSecondAnswersTheSame) {
  processorTime = 7;
  date = 11;
  const std::string first = QVLocalPaths::randomString(8);
  std::srand(1);
  EXPECT_EQ(QVLocalPaths::randomString(8), first);
  EXPECT_EQ(QVLocalPaths::randomString(4), first.substr(0, 4));
}

TEST(QVLocalPathsRandomStringTest, AnotherTickOrSecondAnswersAnother) {
  processorTime = 7;
  date = 11;
  const std::string first = QVLocalPaths::randomString(8);
  processorTime = 8;
  EXPECT_NE(QVLocalPaths::randomString(8), first);
  processorTime = 7;
  date = 12;
  EXPECT_NE(QVLocalPaths::randomString(8), first);
}

TEST(QVLocalPathsRandomStringTest, ThreadsDoNotDisturbEachOther) {
  processorTime = 7;
  date = 11;
  const std::string expected = QVLocalPaths::randomString(64);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&expected] {
      for (int j = 0; j < 200; ++j) EXPECT_EQ(QVLocalPaths::randomString(64), expected);
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST(QVLocalPathsRandomStringTest, TempFilesDifferAllTheSame) {
  EXPECT_NE(QVLocalPaths::tempFile(), QVLocalPaths::tempFile());
}

}  // namespace
