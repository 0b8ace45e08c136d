#include "platform/StatusWindow.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <clocale>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/MainThread.h"
#include "tests/support/BesideMainLoop.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"
#include "tests/support/WindowProgram.h"
#include "tests/support/XServer.h"

namespace platform::status_window {
namespace {

using main_thread::perform;
using main_thread::Wait;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::besideMainLoop;
using test::Sandbox;
using test::waitFor;
using test::XServer;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kTitle[] = "Quorvale Software Update";

void onMain(std::function<void()> work) {
  perform(std::move(work), Wait::untilDone);
}

void show() {
  onMain([] {
    makeKeyAndOrderFront();
    activateApplication();
  });
}

// Spins as many processors as threads, as the pauses of an installation do, while it lives.
class Spinning {
 public:
  explicit Spinning(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      threads_.emplace_back([this] {
        while (!over_) {
        }
      });
    }
  }
  ~Spinning() {
    over_ = true;
    for (auto& thread : threads_) thread.join();
  }

 private:
  std::atomic<bool> over_ = false;
  std::vector<std::thread> threads_;
};

class StatusWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!XServer::isAvailable()) GTEST_SKIP() << XServer::kNeeds;
    test::putPersonAtScreen(sandbox_);
    server_.emplace(XServer::WindowManager::openbox);
  }

  // The window's pixels once they have come to rest.
  std::string restingPixels() const {
    std::string pixels;
    waitFor([&] { return pixels == std::exchange(pixels, server_->pixels()); });
    return pixels;
  }

  Sandbox sandbox_;
  std::optional<XServer> server_;
};

class WithoutDisplayTest : public ::testing::Test {
 protected:
  Sandbox sandbox_;
};

TEST_F(StatusWindowTest, AppearsWithItsTitle) {
  besideMainLoop([&] {
    EXPECT_FALSE(server_->visibleWindow(kTitle));
    show();
    EXPECT_TRUE(server_->waitForWindow(kTitle));
  });
}

TEST_F(StatusWindowTest, GoesOffTheScreen) {
  besideMainLoop([&] {
    show();
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    onMain(orderOut);
    EXPECT_TRUE(waitFor([&] { return !server_->visibleWindow(kTitle); }));
  });
}

TEST_F(StatusWindowTest, ShowsTheStatusLine) {
  besideMainLoop([&] {
    show();
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    const std::string before = restingPixels();
    onMain([] { setStatusText("Relaunching..."); });
    EXPECT_TRUE(waitFor([&] { return server_->pixels() != before; }));
  });
}

TEST_F(StatusWindowTest, KeepsItsSizeWhateverTheStatusLineSays) {
  besideMainLoop([&] {
    show();
    const auto window = server_->waitForWindow(kTitle);
    ASSERT_TRUE(window);
    const std::string before = restingPixels();
    const std::string size = server_->sizeOf(*window);
    EXPECT_THAT(size, Not(IsEmpty()));
    onMain([] { setStatusText(std::string(500, 'W') + "\n" + std::string(500, 'W')); });
    EXPECT_TRUE(waitFor([&] { return server_->pixels() != before; }));
    EXPECT_EQ(server_->sizeOf(*window), size);
  });
}

TEST_F(StatusWindowTest, TakesBytesThatAreNotUtf8) {
  testing::internal::CaptureStderr();
  besideMainLoop([&] {
    show();
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    const std::string before = restingPixels();
    onMain([] { setStatusText("caf\xe9 \xff\xfe"); });
    EXPECT_TRUE(waitFor([&] { return server_->pixels() != before; }));
  });
  EXPECT_THAT(testing::internal::GetCapturedStderr(), IsEmpty());
}

TEST_F(StatusWindowTest, TheIndicatorMovesWhileOtherThreadsSpin) {
  besideMainLoop([&] {
    show();
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    onMain(startAnimation);
    const Spinning spinning(2);
    for (int i = 0; i < 3; ++i) {
      const std::string before = server_->pixels();
      EXPECT_TRUE(waitFor([&] { return server_->pixels() != before; }, seconds(2)));
    }
  });
}

TEST_F(StatusWindowTest, TheIndicatorRestsUntilItIsStarted) {
  besideMainLoop([&] {
    show();
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    const std::string before = restingPixels();
    EXPECT_FALSE(waitFor([&] { return server_->pixels() != before; }, milliseconds(400)));
  });
}

TEST_F(StatusWindowTest, TheMainThreadIsServedWhileTheIndicatorMovesAndOthersSpin) {
  besideMainLoop([&] {
    show();
    onMain(startAnimation);
    const Spinning spinning(2);
    std::vector<steady_clock::duration> times;
    for (int i = 0; i < 51; ++i) {
      const auto start = steady_clock::now();
      onMain([] {});
      times.push_back(steady_clock::now() - start);
    }
    std::ranges::sort(times);
    EXPECT_LT(times[times.size() / 2], milliseconds(100));
  });
}

TEST_F(StatusWindowTest, ThePersonCannotCloseIt) {
  besideMainLoop([&] {
    show();
    const auto window = server_->waitForWindow(kTitle);
    ASSERT_TRUE(window);
    for (const char* key : {"Escape", "Return", "space", "alt+F4", "ctrl+w"}) {
      server_->pressKey(key);
      // The keys are read in order, so once the next change is seen this one has been handled.
      const std::string before = server_->pixels();
      onMain([&] { setStatusText(std::string("After ") + key); });
      EXPECT_TRUE(waitFor([&] { return server_->pixels() != before; })) << key;
      EXPECT_EQ(server_->visibleWindow(kTitle), window) << key;
    }
  });
}

TEST_F(StatusWindowTest, LeavesTheProcessItsLocale) {
  ::setenv("LC_ALL", "C.UTF-8", 1);
  besideMainLoop([] { show(); });
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
}

TEST_F(StatusWindowTest, LeavesTheEnvironmentToTheApplicationsThatAreOpened) {
  const auto whole = [] {
    std::string all;
    for (char** entry = environ; *entry != nullptr; ++entry) all += std::string(*entry) + "\n";
    return all;
  };
  const std::string before = whole();
  besideMainLoop([] { show(); });
  EXPECT_EQ(whole(), before);
}

TEST_F(StatusWindowTest, LoadsNoOpenGl) {
  besideMainLoop([&] {
    show();
    EXPECT_TRUE(server_->waitForWindow(kTitle));
    const std::string program = std::to_string(test::windowProgram());
    const std::string maps = test::readFile("/proc/" + program + "/maps");
    EXPECT_THAT(maps, HasSubstr("libgtk"));
    EXPECT_THAT(maps, Not(HasSubstr("swrast")));
  });
}

TEST_F(StatusWindowTest, ThisProcessMapsNoToolkit) {
  besideMainLoop([&] {
    show();
    EXPECT_TRUE(server_->waitForWindow(kTitle));
  });
  EXPECT_THAT(test::readFile("/proc/self/maps"),
              AllOf(HasSubstr("libstdc++"), Not(HasSubstr("libgtk")), Not(HasSubstr("libX11"))));
}

TEST_F(StatusWindowTest, TheRunGoesOnWhenTheDisplayDies) {
  testing::internal::CaptureStderr();
  bool served = false;
  const int status = besideMainLoop([&] {
    show();
    onMain(startAnimation);
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    server_->kill();
    onMain([&] {
      setStatusText("Relaunching...");
      makeKeyAndOrderFront();
      activateApplication();
      startAnimation();
      orderOut();
      served = true;
    });
    EXPECT_TRUE(test::waitForEndOfWindowProgram());
    onMain([] {});
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(served);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "The display was lost; going on without a window.\n");
}

TEST_F(StatusWindowTest, ADisplayThatDiesInTheMiddleOfACallIsSurvived) {
  testing::internal::CaptureStderr();
  std::atomic<bool> killed = false;
  const int status = besideMainLoop([&] {
    std::thread killer([&] {
      ASSERT_TRUE(server_->waitForWindow(kTitle));
      server_->kill();
      killed = true;
    });
    // Each round trip to the server is a chance to find it dead.
    for (int i = 0; !killed; ++i) {
      onMain(i % 10 == 5 ? orderOut : makeKeyAndOrderFront);
      onMain([i] { setStatusText("Step " + std::to_string(i)); });
      onMain(activateApplication);
    }
    EXPECT_TRUE(test::waitForEndOfWindowProgram());
    onMain(activateApplication);
    killer.join();
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "The display was lost; going on without a window.\n");
}

TEST_F(StatusWindowTest, ADisplayThatDiesUnderWayIsNoticedAndCostsNoProcessorTime) {
  testing::internal::CaptureStderr();
  besideMainLoop([&] {
    show();
    onMain(startAnimation);
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    server_->kill();
    EXPECT_TRUE(test::waitForEndOfWindowProgram());
    // The loop has noticed by itself once it is at rest.
    std::this_thread::sleep_for(milliseconds(100));
    const std::clock_t before = std::clock();
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 10);
  });
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "The display was lost; going on without a window.\n");
}

TEST_F(WithoutDisplayTest, EveryCallDoesNothingAndOneLineSaysSo) {
  testing::internal::CaptureStderr();
  const int status = besideMainLoop([] {
    onMain([] {
      orderOut();
      makeKeyAndOrderFront();
      activateApplication();
      startAnimation();
      setStatusText("Relaunching...");
      orderOut();
    });
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "No display can be opened; going on without a window.\n");
}

TEST_F(WithoutDisplayTest, NoProgramIsStarted) {
  besideMainLoop([] {
    show();
    EXPECT_EQ(test::windowProgram(), 0);
  });
}

TEST_F(WithoutDisplayTest, ADisplayThatDoesNotAnswerIsSurvived) {
  test::putPersonAtScreen(sandbox_);
  ::setenv("DISPLAY", ":60000", 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(besideMainLoop([] {
              show();
              EXPECT_TRUE(test::waitForEndOfWindowProgram());
              onMain([] {});
            }),
            0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "No display can be opened; going on without a window.\n");
}

}  // namespace
}  // namespace platform::status_window
