#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "platform/Alert.h"
#include "platform/MainThread.h"
#include "platform/StatusWindow.h"
#include "tests/support/BesideMainLoop.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"
#include "tests/support/WaylandServer.h"
#include "tests/support/WindowProgram.h"

// The status window and alerts on a desktop that has no X server.
namespace platform {
namespace {

using main_thread::perform;
using main_thread::Wait;
using std::chrono::milliseconds;
using test::besideMainLoop;
using test::Sandbox;
using test::waitFor;
using test::WaylandServer;
using ::testing::HasSubstr;

constexpr char kTitle[] = "Quorvale Software Update";
constexpr char kLost[] = "The display was lost; going on without a window.\n";

void onMain(std::function<void()> work) {
  perform(std::move(work), Wait::untilDone);
}

void show() {
  onMain([] {
    status_window::makeKeyAndOrderFront();
    status_window::activateApplication();
  });
}

class WaylandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!WaylandServer::isAvailable()) GTEST_SKIP() << WaylandServer::kNeeds;
    test::putPersonAtScreen(sandbox_);
    server_.emplace(sandbox_);
  }

  // The screen once it has come to rest.
  std::string restingPixels() const {
    std::string pixels;
    waitFor([&] { return pixels == std::exchange(pixels, server_->pixels()); });
    return pixels;
  }

  // Has a thread show an alert and `act` once it is on the screen; answers whether it was dismissed
  // then.
  bool isDismissedBy(const std::function<void()>& act) {
    const auto dismissed = std::make_shared<std::atomic<bool>>(false);
    bool was = false;
    besideMainLoop([&] {
      std::thread([dismissed] {
        alert::run("Unable to install", "Source file does not exist.");
        *dismissed = true;
      }).detach();
      EXPECT_TRUE(server_->waitForWindow(kTitle));
      EXPECT_FALSE(*dismissed);
      act();
      was = waitFor([&] { return dismissed->load(); });
    });
    return was;
  }

  Sandbox sandbox_;
  std::optional<WaylandServer> server_;
};

TEST_F(WaylandTest, TheStatusWindowAppearsInFrontAndGoes) {
  besideMainLoop([&] {
    EXPECT_FALSE(server_->isVisible(kTitle));
    show();
    EXPECT_TRUE(server_->waitForWindow(kTitle));
    onMain(status_window::orderOut);
    EXPECT_TRUE(waitFor([&] { return !server_->isVisible(kTitle); }));
  });
}

TEST_F(WaylandTest, TheStatusLineChanges) {
  besideMainLoop([&] {
    show();
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    const std::string before = restingPixels();
    onMain([] { status_window::setStatusText("Relaunching..."); });
    EXPECT_TRUE(waitFor([&] { return server_->pixels() != before; }));
  });
}

TEST_F(WaylandTest, TheIndicatorMoves) {
  besideMainLoop([&] {
    show();
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    onMain(status_window::startAnimation);
    for (int i = 0; i < 3; ++i) {
      const std::string before = server_->pixels();
      EXPECT_TRUE(waitFor([&] { return server_->pixels() != before; }));
    }
  });
}

TEST_F(WaylandTest, ThePersonCannotCloseTheStatusWindow) {
  besideMainLoop([&] {
    show();
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    server_->close();
    // What the compositor says arrives in order, so once the next change is seen this one has been.
    const std::string before = restingPixels();
    onMain([] { status_window::setStatusText("Relaunching..."); });
    EXPECT_TRUE(waitFor([&] { return server_->pixels() != before; }));
    EXPECT_TRUE(server_->isVisible(kTitle));
  });
}

TEST_F(WaylandTest, AnAlertIsDismissedByTheFrame) {
  EXPECT_TRUE(isDismissedBy([&] { server_->close(); }));
}

TEST_F(WaylandTest, AnAlertIsToldAndReleasedWhenTheCompositorDies) {
  testing::internal::CaptureStderr();
  EXPECT_TRUE(isDismissedBy([&] { server_->kill(); }));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            kLost + std::string("Alert: Unable to install - Source file does not exist.\n"));
}

TEST_F(WaylandTest, TheRunGoesOnWhenTheCompositorDies) {
  testing::internal::CaptureStderr();
  bool served = false;
  const int status = besideMainLoop([&] {
    show();
    onMain(status_window::startAnimation);
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    server_->kill();
    onMain([&] {
      status_window::setStatusText("Relaunching...");
      status_window::makeKeyAndOrderFront();
      status_window::activateApplication();
      status_window::orderOut();
      served = true;
    });
    EXPECT_TRUE(test::waitForEndOfWindowProgram());
    // The loop has noticed by itself once it is at rest.
    std::this_thread::sleep_for(milliseconds(100));
    const std::clock_t before = std::clock();
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 10);
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(served);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), kLost);
}

TEST_F(WaylandTest, ACompositorThatDiesInTheMiddleOfACallIsSurvived) {
  testing::internal::CaptureStderr();
  const int status = besideMainLoop([&] {
    show();
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    for (int i = 0; i < 200; ++i) {
      onMain(i % 10 == 5 ? status_window::orderOut : status_window::makeKeyAndOrderFront);
      onMain([i] { status_window::setStatusText("Step " + std::to_string(i)); });
      if (i == 100) server_->kill();
    }
    EXPECT_TRUE(test::waitForEndOfWindowProgram());
    onMain([] {});
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), kLost);
}

}  // namespace
}  // namespace platform
