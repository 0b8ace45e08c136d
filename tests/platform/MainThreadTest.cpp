#include "platform/MainThread.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/Exception.h"

namespace platform::main_thread {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Serves the main thread until `done` or for ten seconds.
void serveUntil(const std::atomic<bool>& done) {
  const auto end = steady_clock::now() + seconds(10);
  while (!done && steady_clock::now() < end) pumpOneEvent(milliseconds(10));
}

TEST(MainThreadTest, KnowsTheThreadThatEnteredMain) {
  EXPECT_TRUE(isCurrent());
  bool other = true;
  std::thread([&] { other = isCurrent(); }).join();
  EXPECT_FALSE(other);
}

TEST(MainThreadTest, WaitingOnTheMainThreadItselfCallsAtOnce) {
  bool called = false;
  perform([&] { called = true; }, Wait::untilDone);
  EXPECT_TRUE(called);
}

TEST(MainThreadTest, AnExceptionOfACallMadeAtOnceReachesTheCaller) {
  EXPECT_THROW(perform([] { throw Exception("Name", "reason"); }, Wait::untilDone), Exception);
}

TEST(MainThreadTest, WithoutWaitingTheMainThreadItselfOnlyQueues) {
  bool called = false;
  perform([&] { called = true; }, Wait::no);
  EXPECT_FALSE(called);
  EXPECT_TRUE(pumpOneEvent(seconds(1)));
  EXPECT_TRUE(called);
}

TEST(MainThreadTest, AWorkerWaitsUntilTheMainThreadHasDoneItsWork) {
  std::atomic<bool> done = false;
  std::thread worker([&] {
    bool onMain = false;
    perform([&] { onMain = isCurrent(); }, Wait::untilDone);
    EXPECT_TRUE(onMain);
    done = true;
  });
  serveUntil(done);
  worker.join();
}

TEST(MainThreadTest, WorkRunsInTheOrderOfTheCalls) {
  std::atomic<bool> done = false;
  std::vector<int> order;  // touched by the main thread alone
  std::thread worker([&] {
    for (int i = 0; i < 4; ++i) {
      perform([&order, i] { order.push_back(i); }, i == 2 ? Wait::untilDone : Wait::no);
    }
    perform([&] { done = true; }, Wait::no);
  });
  serveUntil(done);
  worker.join();
  EXPECT_THAT(order, ElementsAre(0, 1, 2, 3));
}

TEST(MainThreadTest, WorkOfManyThreadsIsAllDone) {
  constexpr int kThreads = 8;
  constexpr int kCalls = 200;
  int count = 0;  // touched by the main thread alone
  std::atomic<bool> done = false;
  std::vector<std::thread> workers;
  for (int i = 0; i < kThreads; ++i) {
    workers.emplace_back([&] {
      for (int call = 0; call < kCalls; ++call) {
        perform([&] { done = ++count == kThreads * kCalls; },
                call % 2 == 0 ? Wait::no : Wait::untilDone);
      }
    });
  }
  serveUntil(done);
  for (auto& worker : workers) worker.join();
  EXPECT_EQ(count, kThreads * kCalls);
}

TEST(MainThreadTest, APlatformExceptionOfQueuedWorkIsToldAndTheLoopGoesOn) {
  testing::internal::CaptureStderr();
  bool later = false;
  perform([] { throw Exception("SomeName", "some reason"); }, Wait::no);
  perform([&] { later = true; }, Wait::no);
  EXPECT_TRUE(pumpOneEvent(seconds(1)));
  EXPECT_TRUE(pumpOneEvent(seconds(1)));
  EXPECT_TRUE(later);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Exception on the main thread: SomeName - some reason\n");
}

TEST(MainThreadTest, AnExceptionOfAnotherKindEndsTheProcess) {
  EXPECT_DEATH(
      {
        perform([] { throw 42; }, Wait::no);
        pumpOneEvent(seconds(1));
      },
      "");
}

TEST(MainThreadTest, WorkMayServeEventsItself) {
  std::vector<int> order;
  perform(
      [&] {
        perform([&] { order.push_back(1); }, Wait::no);
        pumpOneEvent(seconds(1));
        order.push_back(2);
      },
      Wait::no);
  pumpOneEvent(seconds(1));
  EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST(MainThreadTest, PumpingWaitsForAnEventUpToTheLimit) {
  const auto start = steady_clock::now();
  EXPECT_FALSE(pumpOneEvent(milliseconds(30)));
  EXPECT_GE(steady_clock::now() - start, milliseconds(30));
}

TEST(MainThreadTest, PumpingWithoutTimeDoesNotWait) {
  const auto start = steady_clock::now();
  for (int i = 0; i < 100; ++i) {
    EXPECT_FALSE(pumpOneEvent(seconds(0)));
    EXPECT_FALSE(pumpOneEvent(seconds(-5)));
  }
  EXPECT_LT(steady_clock::now() - start, seconds(2));
}

TEST(MainThreadTest, PumpingEndsAsSoonAsThereWasAnEvent) {
  const auto start = steady_clock::now();
  std::thread worker([] {
    std::this_thread::sleep_for(milliseconds(20));
    perform([] {}, Wait::no);
  });
  EXPECT_TRUE(pumpOneEvent(seconds(20)));
  EXPECT_LT(steady_clock::now() - start, seconds(10));
  worker.join();
}

TEST(MainThreadTest, PumpingTakesOnePieceOfWorkAtATime) {
  std::vector<int> order;
  perform([&] { order.push_back(1); }, Wait::no);
  perform([&] { order.push_back(2); }, Wait::no);
  EXPECT_THAT(order, IsEmpty());
  pumpOneEvent(seconds(1));
  EXPECT_THAT(order, ElementsAre(1));
  pumpOneEvent(seconds(1));
  EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST(MainThreadTest, AnotherThreadHasNothingToPump) {
  perform([] { ADD_FAILURE() << "run by the wrong thread, or twice"; }, Wait::no);
  std::thread([] { EXPECT_FALSE(pumpOneEvent(seconds(1))); }).join();
}

}  // namespace
}  // namespace platform::main_thread
