#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "Shared/QVLog.h"
#include "platform/Application.h"
#include "tests/support/WaitFor.h"

namespace {

std::atomic<int> starts = 0;
std::promise<void> gate;

}  // namespace

// In place of the application's own: the making of the shared instance stands still in here.
namespace platform::application {

ObserverId addTerminationObserver(std::function<void()>) {
  static const std::shared_future<void> opened = gate.get_future().share();
  ++starts;
  opened.wait();
  return 1;
}

void removeTerminationObserver(ObserverId) {}

}  // namespace platform::application

namespace {

// While one thread makes the shared instance, every other one waits for it.
class QVLogClassLockTest : public testing::Test {
 protected:
  QVLogClassLockTest() : maker_([] { QVLog::sharedController(); }) {
    EXPECT_TRUE(test::waitFor([] { return starts == 1; }));
  }
  ~QVLogClassLockTest() override { maker_.join(); }

  // Whether `work` returns before the instance is made; lets the making go on in any case.
  static bool returnsBefore(const std::function<void()>& work) {
    std::atomic<bool> returned = false;
    std::thread other([&] {
      work();
      returned = true;
    });
    const bool before =
        test::waitFor([&] { return returned || starts > 1; }, std::chrono::milliseconds(100));
    gate.set_value();
    other.join();
    return before;
  }

 private:
  std::thread maker_;
};

TEST_F(QVLogClassLockTest, TheSharedInstanceIsMadeOnce) {
  EXPECT_FALSE(returnsBefore([] { QVLog::sharedController(); }));
  EXPECT_EQ(starts, 1);
}

TEST_F(QVLogClassLockTest, AnAllocationWaitsForIt) {
  EXPECT_FALSE(returnsBefore([] { EXPECT_EQ(QVLog::allocWithZone(), nullptr); }));
}

}  // namespace
