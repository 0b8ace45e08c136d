#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "platform/Alert.h"
#include "platform/MainThread.h"
#include "platform/StatusWindow.h"
#include "tests/support/BesideMainLoop.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SessionBus.h"
#include "tests/support/ToolOutput.h"
#include "tests/support/WaitFor.h"
#include "tests/support/XServer.h"

// What a screen reader is told of the status window and of alerts, over a real accessibility bus.
namespace platform {
namespace {

using main_thread::perform;
using main_thread::Wait;
using test::besideMainLoop;
using test::outputOf;
using test::Sandbox;
using test::SessionBus;
using test::waitFor;
using test::XServer;
using ::testing::HasSubstr;

constexpr char kLauncher[] = "/usr/libexec/at-spi-bus-launcher";
constexpr char kWindowTitle[] = "Quorvale Software Update";

class AccessibilityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!XServer::isAvailable()) GTEST_SKIP() << XServer::kNeeds;
    if (!std::filesystem::exists(kLauncher)) GTEST_SKIP() << "needs at-spi2-core";
    becomePerson();
    server_.emplace(XServer::WindowManager::openbox);
    bus_.emplace(sandbox_);
    bus_->announce();
    const std::string services = bus_->servicesFolder().substr(sandbox_.root().size() + 1);
    sandbox_.makeFile(services + "/org.a11y.Bus.service",
                      "[D-BUS Service]\nName=org.a11y.Bus\nExec=" + std::string(kLauncher) + "\n");
  }

  // All are that person: nobody else is let in by the buses.
  void becomePerson() {
    if (!Sandbox::canSimulateMachine()) return;
    sandbox_.simulateMachine();
    sandbox_.becomeUser(Sandbox::kConsoleUser);
  }

  // The tree once it has `line`.
  static std::string treeWith(const std::string& line) {
    std::string tree;
    waitFor([&] {
      tree = outputOf(QV_TEST_PROGRAMS "/AccessibilityReader AccessibilityTest");
      return tree.find(line) != std::string::npos;
    });
    return tree;
  }

  Sandbox sandbox_;
  std::optional<XServer> server_;
  std::optional<SessionBus> bus_;
};

TEST_F(AccessibilityTest, TheStatusWindowTellsItsTitleItsTextsAndItsIndicator) {
  besideMainLoop([&] {
    perform(
        [] {
          status_window::makeKeyAndOrderFront();
          status_window::startAnimation();
          status_window::setStatusText("Relaunching...");
        },
        Wait::untilDone);
    ASSERT_TRUE(server_->waitForWindow(kWindowTitle));
    const std::string tree = treeWith("label|Relaunching...|");
    EXPECT_THAT(tree, HasSubstr("frame|Quorvale Software Update|"));
    EXPECT_THAT(tree, HasSubstr("icon|Quorvale Software Update|"));
    EXPECT_THAT(tree, HasSubstr("label|Installing the update|"));
    EXPECT_THAT(tree, HasSubstr("progress bar|Installation in progress||between 0 and 1"));
    EXPECT_THAT(tree, HasSubstr("label|Relaunching...|"));
  });
}

TEST_F(AccessibilityTest, AnAlertTellsItsTextsAndItsButton) {
  besideMainLoop([&] {
    std::thread([] { alert::run("Unable to install", "Source file does not exist."); }).detach();
    ASSERT_TRUE(server_->waitForWindow(kWindowTitle));
    const std::string tree = treeWith("push button|OK|");
    EXPECT_THAT(tree, HasSubstr("alert|Unable to install|Source file does not exist.|"));
    EXPECT_THAT(tree, HasSubstr("label|Unable to install|"));
    EXPECT_THAT(tree, HasSubstr("label|Source file does not exist.|"));
    EXPECT_THAT(tree, HasSubstr("push button|OK|"));
  });
}

}  // namespace
}  // namespace platform
