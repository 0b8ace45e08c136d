#include "platform/Alert.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "platform/Application.h"
#include "platform/MainThread.h"
#include "platform/StatusWindow.h"
#include "tests/support/BesideMainLoop.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"
#include "tests/support/WindowProgram.h"
#include "tests/support/XServer.h"

namespace platform::alert {
namespace {

using main_thread::perform;
using main_thread::Wait;
using test::besideMainLoop;
using test::Sandbox;
using test::waitFor;
using test::XServer;
using ::testing::AllOf;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kWindowTitle[] = "Quorvale Software Update";

class AlertTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!XServer::isAvailable()) GTEST_SKIP() << XServer::kNeeds;
    test::putPersonAtScreen(sandbox_);
    server_.emplace(XServer::WindowManager::openbox);
  }

  // Has a thread show an alert and `act` once it is on the screen; answers whether it was
  // dismissed then.
  bool isDismissedBy(const std::function<void(const std::string& window)>& act,
                     const std::string& message = "Source file does not exist.",
                     std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    // Of the thread's own: it may outlive this function when it is not dismissed.
    const auto dismissed = std::make_shared<std::atomic<bool>>(false);
    bool was = false;
    besideMainLoop([&] {
      std::thread asker([dismissed, message] {
        run("Unable to install", message);
        *dismissed = true;
      });
      const auto window = server_->waitForWindow(kWindowTitle);
      EXPECT_TRUE(window);
      EXPECT_FALSE(*dismissed);
      act(window.value_or(""));
      was = waitFor([&] { return dismissed->load(); }, limit);
      if (was) {
        asker.join();
        EXPECT_FALSE(server_->visibleWindow(kWindowTitle));
      } else {
        asker.detach();
      }
    });
    return was;
  }

  Sandbox sandbox_;
  std::optional<XServer> server_;
};

class AlertWithoutDisplayTest : public ::testing::Test {
 protected:
  // What an alert writes to standard error when `ask` shows it.
  std::string told(const std::function<void()>& ask) {
    testing::internal::CaptureStderr();
    besideMainLoop(ask);
    return testing::internal::GetCapturedStderr();
  }

  Sandbox sandbox_;
};

TEST_F(AlertTest, IsDismissedByReturn) {
  EXPECT_TRUE(isDismissedBy([&](const auto&) { server_->pressKey("Return"); }));
}

TEST_F(AlertTest, IsDismissedByEscape) {
  EXPECT_TRUE(isDismissedBy([&](const auto&) { server_->pressKey("Escape"); }));
}

TEST_F(AlertTest, IsDismissedByTheFrame) {
  EXPECT_TRUE(isDismissedBy([&](const auto&) { server_->pressKey("alt+F4"); }));
}

TEST_F(AlertTest, IsDismissedByItsButton) {
  EXPECT_TRUE(isDismissedBy([&](const std::string& window) {
    const std::string size = server_->sizeOf(window);
    const int width = std::atoi(size.c_str());
    const int height = std::atoi(size.substr(size.find('x') + 1).c_str());
    server_->click(window, width - 60, height - 40);
  }));
}

TEST_F(AlertTest, IsNotDismissedByAnotherKey) {
  EXPECT_FALSE(isDismissedBy([&](const auto&) { server_->pressKey("x"); }, "A message.",
                             std::chrono::milliseconds(300)));
}

TEST_F(AlertTest, ALongMessageLeavesTheButtonOnTheScreen) {
  std::string height;
  EXPECT_TRUE(isDismissedBy(
      [&](const std::string& window) {
        const std::string size = server_->sizeOf(window);
        height = size.substr(size.find('x') + 1);
        server_->pressKey("Return");
      },
      [] {
        std::string message;
        for (int i = 0; i < 2000; ++i) message += "Something went wrong. ";
        return message;
      }()));
  EXPECT_LT(std::atoi(height.c_str()), 600);
}

TEST_F(AlertTest, TheMainThreadIsServedMeanwhile) {
  bool served = false;
  EXPECT_TRUE(isDismissedBy([&](const auto&) {
    perform([&] { served = true; }, Wait::untilDone);
    EXPECT_TRUE(served);
    server_->pressKey("Return");
  }));
}

TEST_F(AlertTest, HasTheKeyboardBeforeTheStatusWindow) {
  bool dismissed = false;
  besideMainLoop([&] {
    perform(status_window::makeKeyAndOrderFront, Wait::untilDone);
    ASSERT_TRUE(server_->waitForWindow(kWindowTitle));
    const std::string before = server_->pixels();
    std::atomic<bool> answered = false;
    std::thread asker([&] {
      run("Unable to install", "Source file does not exist.");
      answered = true;
    });
    dismissed = waitFor([&] {
      if (server_->pixels() != before) server_->pressKey("Return");
      return answered.load();
    });
    dismissed ? asker.join() : asker.detach();
    EXPECT_TRUE(server_->waitForWindow(kWindowTitle));
  });
  EXPECT_TRUE(dismissed);
}

TEST_F(AlertTest, TheMainThreadItselfWaitsAndIsServed) {
  std::atomic<bool> dismissed = false;
  besideMainLoop([&] {
    perform(
        [&] {
          run("Unable to install", "Source file does not exist.");
          dismissed = true;
        },
        Wait::no);
    ASSERT_TRUE(server_->waitForWindow(kWindowTitle));
    bool served = false;
    perform([&] { served = true; }, Wait::untilDone);
    EXPECT_TRUE(served);
    EXPECT_FALSE(dismissed);
    server_->pressKey("Return");
    EXPECT_TRUE(waitFor([&] { return dismissed.load(); }));
  });
}

TEST_F(AlertTest, TwoAlertsAreAnsweredEachByItself) {
  std::atomic<int> dismissed = 0;
  besideMainLoop([&] {
    const auto ask = [&] {
      run("Unable to install", "Source file does not exist.");
      ++dismissed;
    };
    std::thread first(ask);
    std::thread second(ask);
    ASSERT_TRUE(server_->waitForWindow(kWindowTitle));
    server_->pressKey("Return");
    ASSERT_TRUE(waitFor([&] { return dismissed > 0; }));
    EXPECT_EQ(dismissed, 1);
    ASSERT_TRUE(waitFor([&] {
      server_->pressKey("Return");
      return dismissed == 2;
    }));
    first.join();
    second.join();
  });
}

TEST_F(AlertTest, WhoWaitsIsReleasedWhenTheMainLoopEnds) {
  std::atomic<bool> released = false;
  besideMainLoop([&] {
    std::thread([&] {
      run("Unable to install", "Source file does not exist.");
      released = true;
    }).detach();
    EXPECT_TRUE(server_->waitForWindow(kWindowTitle));
    EXPECT_FALSE(released);
  });
  EXPECT_TRUE(waitFor([&] { return released.load(); }));
}

TEST_F(AlertTest, TerminatingEndsTheProcessUnderAnAlertOfTheMainThread) {
  EXPECT_EXIT(besideMainLoop([&] {
                perform([] { run("Unable to install", "Source file does not exist."); }, Wait::no);
                server_->waitForWindow(kWindowTitle);
              }),
              ExitedWithCode(0), "");
}

TEST_F(AlertTest, IsToldAndReleasedWhenTheDisplayDies) {
  testing::internal::CaptureStderr();
  EXPECT_TRUE(isDismissedBy([&](const auto&) { server_->kill(); }));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Alert: Unable to install - Source file does not exist.\n"));
}

TEST_F(AlertWithoutDisplayTest, IsToldOnStandardErrorAndReturnsAtOnce) {
  const std::string text = told([] { run("Unable to install", "Source file does not exist."); });
  EXPECT_THAT(text, HasSubstr("Alert: Unable to install - Source file does not exist.\n"));
}

TEST_F(AlertWithoutDisplayTest, TheMainThreadItselfReturnsAtOnceToo) {
  const std::string text =
      told([] { perform([] { run("A title", "A message"); }, Wait::untilDone); });
  EXPECT_THAT(text, HasSubstr("Alert: A title - A message\n"));
}

TEST_F(AlertWithoutDisplayTest, TheMessageIsAFormatAndTheTitleIsNot) {
  const std::string text = told([] { run("100%%", "50%% of %@ and %i"); });
  EXPECT_THAT(text, HasSubstr("Alert: 100%% - 50% of (null) and 0\n"));
}

TEST_F(AlertWithoutDisplayTest, BytesThatAreNotUtf8AreReplaced) {
  const std::string text = told([] { run("caf\xe9", "\xff"); });
  EXPECT_THAT(text, AllOf(HasSubstr("caf\xef\xbf\xbd - \xef\xbf\xbd"), Not(HasSubstr("\xff"))));
}

TEST_F(AlertWithoutDisplayTest, NobodyWaitsOnceTheMainLoopHasEnded) {
  besideMainLoop([] {});
  std::thread([] { run("Unable to install", "Source file does not exist."); }).join();
}

}  // namespace
}  // namespace platform::alert
