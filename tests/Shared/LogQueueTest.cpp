#include "Shared/LogQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Sandbox.h"
#include "tests/support/ThreadLimit.h"
#include "tests/support/WaitFor.h"

namespace {

using testing::ElementsAre;

// A worker that notes what it is given, and stands still while its gate is closed.
class Recorder {
 public:
  LogQueue::Worker worker() {
    return [this](const LogBatch& batch, std::size_t first) {
      entered_ = true;
      gate_.wait();
      const std::lock_guard lock(mutex_);
      texts_.emplace_back(batch.text(first));
      return std::size_t{1};
    };
  }

  void closeGate() { gate_ = opened_.get_future().share(); }
  void openGate() { opened_.set_value(); }
  bool entered() const { return entered_; }
  std::vector<std::string> texts() {
    const std::lock_guard lock(mutex_);
    return texts_;
  }

  Recorder() {
    std::promise<void> open;
    open.set_value();
    gate_ = open.get_future().share();
  }

 private:
  std::promise<void> opened_;
  std::shared_future<void> gate_;
  std::atomic<bool> entered_ = false;
  std::mutex mutex_;  // guards texts_
  std::vector<std::string> texts_;
};

TEST(LogBatchTest, GivesBackTextsAndTheirLengths) {
  LogBatch batch;
  EXPECT_TRUE(batch.empty());
  batch.add("one", 3);
  batch.add("", 0);
  batch.add("drei 😀", 7);
  ASSERT_EQ(batch.size(), 3U);
  EXPECT_EQ(batch.text(0), "one");
  EXPECT_EQ(batch.text(1), "");
  EXPECT_EQ(batch.text(2), "drei 😀");
  EXPECT_EQ(batch.units(2), 7U);
  batch.clear();
  EXPECT_TRUE(batch.empty());
}

TEST(LogQueueTest, OperationsRunInTheOrderInWhichTheyWereAdded) {
  Recorder recorder;
  LogQueue queue(recorder.worker());
  for (const char* text : {"1", "2", "3"}) queue.addOperation(text, 1);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_THAT(recorder.texts(), ElementsAre("1", "2", "3"));
  EXPECT_EQ(queue.operationCount(), 0U);
}

TEST(LogQueueTest, AddingDoesNotWaitAndTheOperationUnderWayCounts) {
  Recorder recorder;
  recorder.closeGate();
  LogQueue queue(recorder.worker());
  queue.addOperation("1", 1);
  ASSERT_TRUE(test::waitFor([&] { return recorder.entered(); }));
  queue.addOperation("2", 1);
  EXPECT_EQ(queue.operationCount(), 2U);
  recorder.openGate();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(queue.operationCount(), 0U);
}

TEST(LogQueueTest, WaitingForAnEmptyQueueReturns) {
  Recorder recorder;
  const LogQueue queue(recorder.worker());
  queue.waitUntilAllOperationsAreFinished();
}

TEST(LogQueueTest, AWorkerMayCarryOutSeveralOperationsAtOnce) {
  std::vector<std::size_t> sizes;
  std::promise<void> added;
  LogQueue queue([&, isAdded = added.get_future().share()](const LogBatch& batch, std::size_t) {
    isAdded.wait();
    sizes.push_back(batch.size());
    return batch.size();
  });
  for (int i = 0; i < 10; ++i) queue.addOperation("text", 4);
  added.set_value();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_LE(sizes.size(), 2U);
  EXPECT_EQ(queue.operationCount(), 0U);
}

TEST(LogQueueTest, TheWorkerDoesNotWaitForItself) {
  LogQueue* itself = nullptr;
  std::atomic<bool> returned = false;
  LogQueue queue([&](const LogBatch&, std::size_t) {
    itself->waitUntilAllOperationsAreFinished();
    returned = true;
    return std::size_t{1};
  });
  itself = &queue;
  queue.addOperation("text", 4);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(returned);
}

TEST(LogQueueTest, WhatTheWorkerAddsIsWaitedForToo) {
  LogQueue* itself = nullptr;
  std::promise<void> waitingBegins;
  std::promise<void> gate;
  std::atomic<bool> childIsDone = false;
  LogQueue queue([&, begun = waitingBegins.get_future().share(),
                  opened = gate.get_future().share()](const LogBatch& batch, std::size_t first) {
    if (batch.text(first) == "parent") {
      begun.wait();
      // The call that waits is there before there is anything more to wait for.
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      itself->addOperation("child", 5);
    } else {
      opened.wait();
      childIsDone = true;
    }
    return std::size_t{1};
  });
  itself = &queue;
  queue.addOperation("parent", 6);
  std::atomic<bool> returned = false;
  std::thread waiting([&] {
    waitingBegins.set_value();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(childIsDone);
    returned = true;
  });
  EXPECT_FALSE(test::waitFor([&] { return returned.load(); }, std::chrono::milliseconds(150)));
  gate.set_value();
  waiting.join();
}

TEST(LogQueueTest, WhatOthersAddMeanwhileIsNotWaitedFor) {
  Recorder recorder;
  LogQueue queue(recorder.worker());
  std::atomic<bool> stop = false;
  std::thread busy([&] {
    // Never an empty queue, and never one that takes minutes to empty.
    while (!stop) {
      if (queue.operationCount() < 100) queue.addOperation("again", 5);
    }
  });
  for (int i = 0; i < 20; ++i) queue.waitUntilAllOperationsAreFinished();
  stop = true;
  busy.join();
  queue.waitUntilAllOperationsAreFinished();
}

TEST(LogQueueTest, WhatIsLeftIsFinishedWhenTheQueueIsLetGoOf) {
  Recorder recorder;
  recorder.closeGate();
  {
    LogQueue queue(recorder.worker());
    for (const char* text : {"1", "2", "3"}) queue.addOperation(text, 1);
  }
  recorder.openGate();
  EXPECT_TRUE(test::waitFor([&] { return recorder.texts().size() == 3; }));
}

TEST(LogQueueTest, NothingIsLostBetweenManyThreads) {
  constexpr int kThreads = 4;
  constexpr int kTexts = 2000;
  std::atomic<int> seen = 0;
  LogQueue queue([&](const LogBatch& batch, std::size_t first) {
    seen += static_cast<int>(batch.size() - first);
    return batch.size() - first;
  });
  std::vector<std::thread> callers;
  for (int i = 0; i < kThreads; ++i) {
    callers.emplace_back([&] {
      for (int text = 0; text < kTexts; ++text) {
        queue.addOperation("text", 4);
        if (text % 100 == 0) queue.waitUntilAllOperationsAreFinished();
      }
    });
  }
  for (std::thread& caller : callers) caller.join();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(seen, kThreads * kTexts);
}

TEST(LogQueueTest, WithoutAThreadNobodyWaitsAndTheNextTextAsksAgain) {
  if (!test::Sandbox::canSimulateMachine()) GTEST_SKIP() << test::Sandbox::kNeedsRoot;
  test::Sandbox sandbox;
  sandbox.simulateMachine();
  sandbox.becomeUser(test::Sandbox::kOtherUser);
  Recorder recorder;
  LogQueue queue(recorder.worker());

  std::optional<test::ThreadLimit> noThreads(std::in_place);
  ASSERT_TRUE(noThreads->isSet());
  queue.addOperation("1", 1);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(queue.operationCount(), 1U);

  noThreads.reset();
  queue.addOperation("2", 1);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_THAT(recorder.texts(), ElementsAre("1", "2"));
}

}  // namespace
