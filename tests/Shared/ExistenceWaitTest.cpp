#include "Shared/ExistenceWait.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <thread>

#include "platform/Alert.h"
#include "platform/MainThread.h"
#include "platform/StatusWindow.h"
#include "tests/support/BesideMainLoop.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"
#include "tests/support/WindowProgram.h"
#include "tests/support/XServer.h"

namespace {

namespace fs = std::filesystem;
namespace main_thread = platform::main_thread;
namespace status_window = platform::status_window;
using main_thread::Wait;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::XServer;

template <class Call>
milliseconds timeOf(Call call) {
  const auto start = steady_clock::now();
  call();
  return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
}

// Where nobody's events have to be handled.
template <class Call>
void onAnotherThread(Call call) {
  std::thread(call).join();
}

// Changes something a little later, on a thread of its own.
class Later {
 public:
  template <class Work>
  Later(milliseconds delay, Work work)
      : thread_([delay, work] {
          std::this_thread::sleep_for(delay);
          work();
        }) {}
  ~Later() { thread_.join(); }
  Later(const Later&) = delete;
  Later& operator=(const Later&) = delete;

 private:
  std::thread thread_;
};

class ExistenceWaitTest : public testing::Test {
 protected:
  test::Sandbox sandbox_;
};

TEST_F(ExistenceWaitTest, WhatIsThereAlreadyIsNotWaitedFor) {
  const std::string file = sandbox_.makeFile("file");
  const auto wait = [&] {
    EXPECT_LT(timeOf([&] {
                EXPECT_TRUE(existsWithin(file, seconds(60)));
                EXPECT_TRUE(isGoneWithin(sandbox_.path("missing"), seconds(60)));
              }),
              milliseconds(250));
  };
  wait();
  onAnotherThread(wait);
}

TEST_F(ExistenceWaitTest, NoTimeAndLessThanNoneAreOverAtOnce) {
  const std::string file = sandbox_.makeFile("file");
  const auto wait = [&] {
    for (const seconds timeout : {seconds(0), seconds(-1), seconds::min()}) {
      EXPECT_LT(timeOf([&] {
                  EXPECT_FALSE(existsWithin(sandbox_.path("missing"), timeout));
                  EXPECT_FALSE(isGoneWithin(file, timeout));
                  EXPECT_TRUE(existsWithin(file, timeout));
                  EXPECT_TRUE(isGoneWithin(sandbox_.path("missing"), timeout));
                }),
                milliseconds(250));
    }
  };
  wait();
  onAnotherThread(wait);
}

TEST_F(ExistenceWaitTest, TheTimeOutEndsTheWait) {
  const auto wait = [this] {
    const auto time = timeOf([this] {
      EXPECT_FALSE(existsWithin(sandbox_.path("missing"), seconds(1)));
      EXPECT_FALSE(isGoneWithin(sandbox_.root(), seconds(1)));
    });
    EXPECT_GE(time, milliseconds(2000));
    EXPECT_LT(time, milliseconds(4000));
  };
  wait();
  onAnotherThread(wait);
}

TEST_F(ExistenceWaitTest, TheLongestTimeOutWaitsAsWell) {
  const std::string coming = sandbox_.path("coming");
  const Later later(milliseconds(50), [&] { sandbox_.makeFile("coming"); });
  EXPECT_TRUE(existsWithin(coming, seconds::max()));
}

TEST_F(ExistenceWaitTest, OnTheMainThreadAChangeIsSeenWithinAHundredthOfASecond) {
  const std::string coming = sandbox_.path("coming");
  steady_clock::time_point changed;
  {
    const Later later(milliseconds(50), [&] {
      sandbox_.makeFile("coming");
      changed = steady_clock::now();
    });
    EXPECT_TRUE(existsWithin(coming, seconds(60)));
  }
  EXPECT_LT(steady_clock::now() - changed, milliseconds(200));
}

// Each of them gives the processor away once.
TEST_F(ExistenceWaitTest, TheMainThreadWaitsForEventsInSlicesOfAHundredthOfASecond) {
  rusage before{};
  rusage after{};
  ::getrusage(RUSAGE_THREAD, &before);
  EXPECT_FALSE(existsWithin(sandbox_.path("missing"), seconds(2)));
  ::getrusage(RUSAGE_THREAD, &after);
  EXPECT_GT(after.ru_nvcsw - before.ru_nvcsw, 50) << "of two hundred at most";
  EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 300);
}

TEST_F(ExistenceWaitTest, AnotherThreadLooksEveryThreeTenthsOfASecond) {
  const std::string going = sandbox_.makeFile("going");
  const auto time = timeOf([&] {
    const Later later(milliseconds(50), [&] { fs::remove(going); });
    onAnotherThread([&] { EXPECT_TRUE(isGoneWithin(going, seconds(60))); });
  });
  EXPECT_GE(time, milliseconds(300));
  EXPECT_LT(time, milliseconds(1500));
}

TEST_F(ExistenceWaitTest, TheMainThreadServesOthersMeanwhile) {
  std::atomic<int> served = 0;
  const Later later(milliseconds(0), [&] {
    for (int i = 0; i < 100; ++i) main_thread::perform([&] { ++served; }, Wait::untilDone);
    sandbox_.makeFile("coming");
  });
  EXPECT_TRUE(existsWithin(sandbox_.path("coming"), seconds(60)));
  EXPECT_EQ(served, 100);
}

TEST_F(ExistenceWaitTest, AnotherThreadServesNobody) {
  bool served = false;
  main_thread::perform([&] { served = true; }, Wait::no);
  onAnotherThread([&] { EXPECT_FALSE(existsWithin(sandbox_.path("missing"), seconds(1))); });
  EXPECT_FALSE(served);
}

// The main thread waits for five seconds, and a person sees a window that is alive all the time.
TEST_F(ExistenceWaitTest, AWindowRepaintsAndAnswersDuringAWaitOfFiveSeconds) {
  if (!XServer::isAvailable()) GTEST_SKIP() << XServer::kNeeds;
  test::putPersonAtScreen(sandbox_);
  const XServer server(XServer::WindowManager::openbox);
  test::besideMainLoop([&] {
    main_thread::perform(
        [] {
          status_window::makeKeyAndOrderFront();
          status_window::activateApplication();
          status_window::startAnimation();
        },
        Wait::untilDone);
    ASSERT_TRUE(server.waitForWindow("Quorvale Software Update"));
    std::promise<milliseconds> waited;
    main_thread::perform(
        [&] {
          waited.set_value(timeOf([&] { existsWithin(sandbox_.path("missing"), seconds(5)); }));
        },
        Wait::no);

    const auto start = steady_clock::now();
    int looks = 0;
    for (; steady_clock::now() - start < milliseconds(4500); ++looks) {
      const std::string before = server.pixels();
      EXPECT_TRUE(test::waitFor([&] { return server.pixels() != before; }, seconds(1)));
      EXPECT_LT(timeOf([] { main_thread::perform([] {}, Wait::untilDone); }), milliseconds(500));
    }
    EXPECT_GE(looks, 3);
    const milliseconds time = waited.get_future().get();
    EXPECT_GE(time, seconds(5));
    EXPECT_LT(time, seconds(6));
  });
}

TEST_F(ExistenceWaitTest, APersonCanAnswerAnAlertDuringAWait) {
  if (!XServer::isAvailable()) GTEST_SKIP() << XServer::kNeeds;
  test::putPersonAtScreen(sandbox_);
  const XServer server(XServer::WindowManager::openbox);
  test::besideMainLoop([&] {
    std::promise<bool> came;
    main_thread::perform(
        [&] { came.set_value(existsWithin(sandbox_.path("coming"), seconds(60))); }, Wait::no);
    std::atomic<bool> answered = false;
    std::thread asker([&] {
      platform::alert::run("Unable to install", "A message.");
      answered = true;
    });
    EXPECT_TRUE(server.waitForWindow("Quorvale Software Update"));
    server.pressKey("Return");
    EXPECT_TRUE(test::waitFor([&] { return answered.load(); }));
    sandbox_.makeFile("coming");
    EXPECT_TRUE(came.get_future().get());
    asker.join();
  });
}

}  // namespace
