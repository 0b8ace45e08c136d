#include "platform/Application.h"

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Exception.h"
#include "platform/MainThread.h"
#include "platform/Task.h"
#include "platform/UserDefaults.h"
#include "tests/support/WaitFor.h"

namespace platform::application {
namespace {

using main_thread::perform;
using main_thread::Wait;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::waitFor;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::KilledBySignal;

class Delegate : public ApplicationDelegate {
 public:
  explicit Delegate(std::function<void()> launched) : launched_(std::move(launched)) {}
  void applicationDidFinishLaunching() override { launched_(); }

 private:
  std::function<void()> launched_;
};

int runWith(std::function<void()> launched, std::vector<const char*> arguments = {"program"}) {
  Delegate delegate(std::move(launched));
  return run(static_cast<int>(arguments.size()), arguments.data(), delegate);
}

void terminateFromAnotherThread() {
  std::thread([] { terminate(); }).detach();
}

// For the observers of a process that ends: what they say goes to standard error.
void say(const std::string& word) {
  const std::string line = word + ";";
  if (::write(STDERR_FILENO, line.data(), line.size()) < 0) std::abort();
}

TEST(ApplicationTest, TheDelegateIsToldOnTheMainThreadInTheRunningLoop) {
  int told = 0;
  bool onMain = false;
  bool served = false;
  const int status = runWith([&] {
    ++told;
    onMain = main_thread::isCurrent();
    std::thread([&] {
      perform([&] { served = true; }, Wait::untilDone);
      terminate();
    }).detach();
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(told, 1);
  EXPECT_TRUE(onMain);
  EXPECT_TRUE(served);
}

TEST(ApplicationTest, TheDelegateIsToldBeforeEarlierWork) {
  std::vector<std::string> order;
  perform([&] { order.emplace_back("work"); }, Wait::no);
  runWith([&] {
    order.emplace_back("launched");
    terminateFromAnotherThread();
  });
  EXPECT_THAT(order, ElementsAre("launched", "work"));
}

TEST(ApplicationTest, TheArgumentsAreTakenBeforeTheDelegateIsTold) {
  std::string source;
  runWith(
      [&] {
        source = user_defaults::string("source").value_or("none");
        terminateFromAnotherThread();
      },
      {"program", "-source", "/a b.app"});
  EXPECT_EQ(source, "/a b.app");
}

TEST(ApplicationTest, ABrokenPipeDoesNotKill) {
  runWith([] {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    EXPECT_EQ(::write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    ::close(ends[1]);
    terminateFromAnotherThread();
  });
}

TEST(ApplicationTest, ALimitOnTheSizeOfFilesFailsAWriteAndDoesNotKill) {
  runWith([] {
    const rlimit limit = {0, RLIM_INFINITY};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    const int file = ::memfd_create("file", 0);
    EXPECT_EQ(::write(file, "x", 1), -1);
    EXPECT_EQ(errno, EFBIG);
    ::close(file);
    terminateFromAnotherThread();
  });
}

class ApplicationSignalTest : public testing::TestWithParam<int> {};

TEST_P(ApplicationSignalTest, EndsTheApplicationUntilItOutlastsItsSession) {
  EXPECT_EXIT(runWith([] { ::kill(::getpid(), GetParam()); }), KilledBySignal(GetParam()), "");
}

TEST_P(ApplicationSignalTest, DoesNotEndAnApplicationThatOutlastsItsSession) {
  EXPECT_EXIT(std::exit(runWith([] {
                std::thread([] {
                  ignoreTerminationRequests();
                  ::kill(::getpid(), GetParam());
                  perform([] { say("goes on"); }, Wait::untilDone);
                  terminate();
                }).detach();
              })),
              ExitedWithCode(0), "^goes on;$");
}

TEST_P(ApplicationSignalTest, EndsAnApplicationThatHeedsRequestsAgain) {
  EXPECT_EXIT(runWith([] {
                ignoreTerminationRequests();
                heedTerminationRequests();
                ::kill(::getpid(), GetParam());
              }),
              KilledBySignal(GetParam()), "");
}

TEST_P(ApplicationSignalTest, EndsTheChildProgramsOfAnApplicationThatOutlastsItsSession) {
  runWith([] {
    ignoreTerminationRequests();
    const auto task = Task::create();
    task->setLaunchPath("/bin/sh");
    task->setArguments({"-c", "kill -" + std::to_string(GetParam()) + " $$; exit 0"});
    task->launch();
    task->waitUntilExit();
    EXPECT_EQ(task->terminationStatus(), GetParam());
    terminateFromAnotherThread();
  });
}

std::string signalName(const testing::TestParamInfo<int>& signal) {
  return ::sigabbrev_np(signal.param);
}

INSTANTIATE_TEST_SUITE_P(Requests, ApplicationSignalTest, testing::Values(SIGHUP, SIGINT, SIGTERM),
                         signalName);

TEST(ApplicationTest, TheStatusOfChildProgramsIsKeptWhateverTheStarterIgnored) {
  std::signal(SIGCHLD, SIG_IGN);
  runWith([] {
    const auto task = Task::create();
    task->setLaunchPath(QV_TEST_PROGRAMS "/TaskProbe");
    task->setArguments({"exit", "7"});
    task->launch();
    task->waitUntilExit();
    EXPECT_EQ(task->terminationStatus(), 7);
    terminateFromAnotherThread();
  });
}

TEST(ApplicationTest, AnExceptionWhileLaunchingLeavesTheApplicationOpen) {
  bool served = false;
  const int status = runWith([&] {
    std::thread([&] {
      perform([&] { served = true; }, Wait::untilDone);
      terminate();
    }).detach();
    throw Exception("Name", "reason");
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(served);
}

TEST(ApplicationTest, WorkSentBeforeTerminationIsDone) {
  std::vector<int> order;
  runWith([&] {
    std::thread([&] {
      for (int i = 0; i < 3; ++i) perform([&order, i] { order.push_back(i); }, Wait::no);
      terminate();
    }).detach();
  });
  EXPECT_THAT(order, ElementsAre(0, 1, 2));
}

TEST(ApplicationTest, ObserversRunOnTheMainThreadInTheOrderOfAdding) {
  std::vector<int> order;
  for (int i = 0; i < 3; ++i) {
    addTerminationObserver([&order, i] {
      EXPECT_TRUE(main_thread::isCurrent());
      order.push_back(i);
    });
  }
  runWith(terminateFromAnotherThread);
  EXPECT_THAT(order, ElementsAre(0, 1, 2));
}

TEST(ApplicationTest, ARemovedObserverIsNotCalled) {
  std::vector<int> order;
  const ObserverId first = addTerminationObserver([&] { order.push_back(1); });
  addTerminationObserver([&] { order.push_back(2); });
  removeTerminationObserver(first);
  removeTerminationObserver(first);
  removeTerminationObserver(99);
  runWith(terminateFromAnotherThread);
  EXPECT_THAT(order, ElementsAre(2));
}

TEST(ApplicationTest, AnObserverMayRemoveAnother) {
  std::vector<int> order;
  ObserverId second = 0;
  addTerminationObserver([&] {
    order.push_back(1);
    removeTerminationObserver(second);
  });
  second = addTerminationObserver([&] { order.push_back(2); });
  addTerminationObserver([&] { order.push_back(3); });
  runWith(terminateFromAnotherThread);
  EXPECT_THAT(order, ElementsAre(1, 3));
}

TEST(ApplicationTest, AFailingObserverDoesNotKeepTheNextFromRunning) {
  bool reached = false;
  addTerminationObserver([] { throw Exception("Name", "reason"); });
  addTerminationObserver([&] { reached = true; });
  EXPECT_EQ(runWith(terminateFromAnotherThread), 0);
  EXPECT_TRUE(reached);
}

TEST(ApplicationTest, TerminatingOnTheMainThreadEndsAtOnceWithTheObservers) {
  EXPECT_EXIT(
      {
        addTerminationObserver([] { say("first"); });
        addTerminationObserver([] { say("second"); });
        runWith([] {
          perform([] { say("never"); }, Wait::no);
          terminate();
        });
      },
      ExitedWithCode(0), "^first;second;$");
}

TEST(ApplicationTest, TerminatingInsideAnObserverRunsTheOthersAndEnds) {
  EXPECT_EXIT(
      {
        addTerminationObserver([] {
          say("first");
          terminate();
        });
        addTerminationObserver([] { say("second"); });
        runWith(terminateFromAnotherThread);
      },
      ExitedWithCode(0), "^first;second;$");
}

TEST(ApplicationTest, TerminatingFromAnotherThreadEndsAWaitThatServesEvents) {
  EXPECT_EXIT(
      {
        addTerminationObserver([] { say("observer"); });
        runWith([] {
          terminateFromAnotherThread();
          const auto end = steady_clock::now() + seconds(60);
          while (steady_clock::now() < end) main_thread::pumpOneEvent(seconds(1));
          say("never");
        });
      },
      ExitedWithCode(0), "^observer;$");
}

TEST(ApplicationTest, TerminationDoesNotReturnOnTheCallingThread) {
  std::atomic<bool> returned = false;
  std::atomic<bool> interrupted = false;
  static std::atomic<bool> handled = false;
  std::signal(SIGUSR1, [](int) { handled = true; });
  std::atomic<pthread_t> caller{};
  runWith([&] {
    std::thread([&] {
      // Seen after the call if it ever comes back, by an exception too.
      const auto mark = [&](void*) { returned = true; };
      const std::unique_ptr<void, decltype(mark)> guard(&returned, mark);
      caller = ::pthread_self();
      terminate();
    }).detach();
  });
  // A signal whose handler returns does not set the thread free either.
  ASSERT_EQ(::pthread_kill(caller, SIGUSR1), 0);
  ASSERT_TRUE(waitFor([&] { return handled.load(); }));
  EXPECT_FALSE(waitFor([&] { return returned.load(); }, std::chrono::milliseconds(50)));
}

TEST(ApplicationTest, AThreadThatWaitsForTheMainThreadIsReleasedAndItsWorkDropped) {
  EXPECT_EXIT(
      {
        std::atomic<bool> asking = false;
        std::atomic<bool> released = false;
        addTerminationObserver(
            [&] { say(waitFor([&] { return released.load(); }) ? "released" : "still waiting"); });
        runWith([&] {
          std::thread([&] {
            asking = true;
            perform([] { say("never"); }, Wait::untilDone);
            released = true;
          }).detach();
          waitFor([&] { return asking.load(); });
          terminate();
        });
      },
      ExitedWithCode(0), "^released;$");
}

TEST(ApplicationTest, WorkSentAfterTheEndIsDroppedAndNobodyWaits) {
  runWith(terminateFromAnotherThread);
  std::thread([] {
    perform([] { ADD_FAILURE() << "the main loop has ended"; }, Wait::untilDone);
    perform([] { ADD_FAILURE() << "the main loop has ended"; }, Wait::no);
  }).join();
  EXPECT_FALSE(main_thread::pumpOneEvent(seconds(0)));
}

TEST(ApplicationTest, TheEndDoesNotWaitForSleepingThreads) {
  const auto start = steady_clock::now();
  EXPECT_EXIT(
      {
        std::thread([] { std::this_thread::sleep_for(seconds(60)); }).detach();
        std::exit(runWith(terminateFromAnotherThread));
      },
      ExitedWithCode(0), "");
  EXPECT_LT(steady_clock::now() - start, seconds(20));
}

}  // namespace
}  // namespace platform::application
