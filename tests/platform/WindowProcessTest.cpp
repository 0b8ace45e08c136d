#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/Alert.h"
#include "platform/MainThread.h"
#include "platform/Privilege.h"
#include "platform/StatusWindow.h"
#include "tests/support/BesideMainLoop.h"
#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SessionBus.h"
#include "tests/support/ToolOutput.h"
#include "tests/support/WaitFor.h"
#include "tests/support/WindowProgram.h"
#include "tests/support/XServer.h"

// What the program that shows the windows may do to the process that has them shown, and what it is
// given: by displays that freeze, by whoever kills or stops it, by what it answers, by its rights.
namespace platform {
namespace {

namespace fs = std::filesystem;
using main_thread::perform;
using main_thread::Wait;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::besideMainLoop;
using test::readFile;
using test::Sandbox;
using test::waitFor;
using test::XServer;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kTitle[] = "Quorvale Software Update";
constexpr char kAlert[] = "Alert: Unable to install - A message.\n";
constexpr char kProgram[] = QV_TEST_BUNDLE "/Contents/Linux/window";

void onMain(std::function<void()> work) {
  perform(std::move(work), Wait::untilDone);
}

void show() {
  onMain([] {
    status_window::makeKeyAndOrderFront();
    status_window::activateApplication();
    status_window::startAnimation();
  });
}

// Everything that can be asked of the status window, many times.
void changeOften() {
  for (int i = 0; i < 2000; ++i) {
    onMain([i] {
      status_window::setStatusText("Step " + std::to_string(i));
      status_window::orderOut();
      status_window::makeKeyAndOrderFront();
    });
  }
}

template <class Work>
seconds timeOf(Work work) {
  const auto start = steady_clock::now();
  work();
  return std::chrono::ceil<seconds>(steady_clock::now() - start);
}

// Has a thread show an alert and `act`; answers whether the alert came back within twenty seconds.
bool comesBack(const std::function<void()>& act) {
  const auto back = std::make_shared<std::atomic<bool>>(false);
  std::thread([back] {
    alert::run("Unable to install", "A message.");
    *back = true;
  }).detach();
  act();
  return waitFor([&] { return back->load(); }, seconds(20));
}

class WindowProcessTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!XServer::isAvailable()) GTEST_SKIP() << XServer::kNeeds;
    test::putPersonAtScreen(sandbox_);
    server_.emplace(XServer::WindowManager::openbox);
  }

  void waitForWindow() { ASSERT_TRUE(server_->waitForWindow(kTitle)); }
  static void signalProgram(int number) {
    ASSERT_GT(test::windowProgram(), 0);
    ::kill(test::windowProgram(), number);
  }

  // What is written to standard error by an alert that `act` lets nobody dismiss.
  std::string toldWhen(const std::function<void()>& act) {
    testing::internal::CaptureStderr();
    besideMainLoop([&] {
      EXPECT_TRUE(comesBack([&] {
        waitForWindow();
        act();
      }));
      EXPECT_TRUE(test::waitForEndOfWindowProgram());
    });
    return testing::internal::GetCapturedStderr();
  }

  Sandbox sandbox_;
  std::optional<XServer> server_;
};

TEST_F(WindowProcessTest, AFrozenDisplayDelaysNothingThatIsAskedOfTheStatusWindow) {
  server_->freeze();
  besideMainLoop([&] {
    EXPECT_LE(timeOf([] {
                show();
                changeOften();
              }),
              seconds(5));
    EXPECT_TRUE(waitFor([] { return test::windowProgram() != 0; }));
  });
}

TEST_F(WindowProcessTest, ADisplayThatFreezesUnderTheWindowDelaysNothingAndShowsTheLastLineLater) {
  besideMainLoop([&] {
    show();
    waitForWindow();
    server_->freeze();
    EXPECT_LE(timeOf(changeOften), seconds(5));
    onMain(status_window::orderOut);
    server_->thaw();
    EXPECT_TRUE(waitFor([&] { return !server_->visibleWindow(kTitle); }));
    EXPECT_NE(test::windowProgram(), 0);
  });
}

TEST_F(WindowProcessTest, AnAlertForAFrozenDisplayIsToldAndReleased) {
  testing::internal::CaptureStderr();
  server_->freeze();
  besideMainLoop([&] {
    EXPECT_TRUE(comesBack([] {}));
    EXPECT_TRUE(test::waitForEndOfWindowProgram());
  });
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            std::string("The display does not answer; going on without a window.\n") + kAlert);
}

TEST_F(WindowProcessTest, AnAlertUnderWhichTheDisplayFreezesIsToldAndReleased) {
  EXPECT_THAT(toldWhen([&] { server_->freeze(); }), EndsWith(kAlert));
}

TEST_F(WindowProcessTest, AnAlertWhoseProgramIsStoppedIsToldAndReleased) {
  EXPECT_THAT(toldWhen([] { signalProgram(SIGSTOP); }), EndsWith(kAlert));
}

TEST_F(WindowProcessTest, AnAlertWhoseProgramIsKilledIsToldAndReleased) {
  EXPECT_EQ(toldWhen([] { signalProgram(SIGKILL); }),
            std::string("The display was lost; going on without a window.\n") + kAlert);
}

TEST_F(WindowProcessTest, AnAlertOutlastsAShortFreezeOfItsDisplay) {
  besideMainLoop([&] {
    const auto back = std::make_shared<std::atomic<bool>>(false);
    std::thread([back] {
      alert::run("Unable to install", "A message.");
      *back = true;
    }).detach();
    waitForWindow();
    server_->freeze();
    std::this_thread::sleep_for(seconds(5));
    server_->thaw();
    EXPECT_FALSE(waitFor([&] { return back->load(); }, seconds(8)));
    EXPECT_TRUE(waitFor([&] {
      server_->pressKey("Return");
      return back->load();
    }));
  });
}

TEST_F(WindowProcessTest, TheRunGoesOnWhenTheProgramIsKilled) {
  testing::internal::CaptureStderr();
  besideMainLoop([&] {
    show();
    waitForWindow();
    signalProgram(SIGKILL);
    EXPECT_TRUE(test::waitForEndOfWindowProgram());
    EXPECT_LE(timeOf(changeOften), seconds(5));
  });
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "The display was lost; going on without a window.\n");
}

TEST_F(WindowProcessTest, AProgramThatCannotBeRunIsAWindowThatIsNotThere) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  ASSERT_EQ(::mount("/dev/null", kProgram, nullptr, MS_BIND, nullptr), 0);
  testing::internal::CaptureStderr();
  besideMainLoop([] { EXPECT_TRUE(comesBack([] {})); });
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            std::string("No display can be opened; going on without a window.\n") + kAlert);
}

TEST_F(WindowProcessTest, TheSuperusersProgramIsThePersonsWithThatPersonsEnvironment) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  besideMainLoop([&] {
    show();
    waitForWindow();
    const std::string program = "/proc/" + std::to_string(test::windowProgram());
    const std::string status = readFile(program + "/status");
    EXPECT_THAT(status, HasSubstr("Uid:\t61001\t61001\t61001\t61001\n"));
    EXPECT_THAT(status, HasSubstr("Gid:\t61001\t61001\t61001\t61001\n"));
    EXPECT_THAT(status, HasSubstr("Groups:\t61001 \n"));
    EXPECT_THAT(status, HasSubstr("CapPrm:\t0000000000000000\n"));
    const std::string home = sandbox_.homeOf(Sandbox::kConsoleUser);
    EXPECT_THAT(readFile(program + "/environ"), HasSubstr("HOME=" + home + '\0'));
    EXPECT_EQ(fs::read_symlink(program + "/cwd"), home);
  });
}

// An ordinary user's, whom an updater has handed a session down to.
class OwnWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!XServer::isAvailable()) GTEST_SKIP() << XServer::kNeeds;
    if (Sandbox::canSimulateMachine()) {
      sandbox_.simulateMachine();
      sandbox_.becomeUser(Sandbox::kConsoleUser);
    }
    server_.emplace(XServer::WindowManager::openbox);
  }

  Sandbox sandbox_;
  std::optional<XServer> server_;
};

TEST_F(OwnWindowTest, TheProgramHasNeitherTheSessionNorAnyOtherDescriptorOfOurs) {
  const int ours = ::memfd_create("ours", 0);
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
  ::setenv("QV_ELEVATOR_CHANNEL", std::to_string(ends[0]).c_str(), 1);
  const fs::path session = fs::read_symlink("/proc/self/fd/" + std::to_string(ends[0]));
  privilege::protectProcess();
  besideMainLoop([&] {
    show();
    ASSERT_TRUE(server_->waitForWindow(kTitle));
    const std::string program = "/proc/" + std::to_string(test::windowProgram());
    EXPECT_THAT(readFile(program + "/environ"), Not(HasSubstr("QV_ELEVATOR_CHANNEL")));
    for (const auto& descriptor : fs::directory_iterator(program + "/fd")) {
      const std::string target = fs::read_symlink(descriptor).string();
      EXPECT_THAT(target, Not(StartsWith("/memfd:ours")));
      EXPECT_NE(target, session);
    }
    for (const char* end : {"0", "1", "2"}) {
      EXPECT_EQ(fs::read_symlink(program + "/fd/" + end), "/dev/null");
    }
  });
  ::close(ours);
}

TEST_F(WindowProcessTest, ThePropertiesOfAHostileDisplayRunNothingButAsThePerson) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  fs::permissions(sandbox_.makeDirectory("hostile"), fs::perms::all);
  const std::string module = sandbox_.path("hostile/module.so");
  const std::string script = sandbox_.path("hostile/bus");
  fs::copy_file(QV_TEST_MODULES "/HostileModule.so", module);
  sandbox_.makeFile("hostile/bus", "#!/bin/sh\nid -u >> '" + script + ".run'\n");
  fs::permissions(script, fs::perms(0755));
  test::ChildProgram settings({QV_TEST_PROGRAMS "/DisplaySettings", module});
  ASSERT_TRUE(settings.waitForLine("ready"));
  test::outputOf("xprop -root -f AT_SPI_BUS 8s -set AT_SPI_BUS 'unixexec:path=" + script + "'");
  const test::SessionBus bus(sandbox_, Sandbox::kConsoleUserId);
  bus.announce();
  besideMainLoop([&] {
    show();
    waitForWindow();
    const std::string program = std::to_string(test::windowProgram());
    EXPECT_TRUE(waitFor([&] { return fs::exists(module + ".loaded"); }));
    EXPECT_THAT(readFile(module + ".loaded"), StartsWith(program + " 61001\n"));
  });
  EXPECT_THAT(readFile(module + ".loaded"), Not(HasSubstr(" 0\n")));
  EXPECT_THAT(readFile(script + ".run"), Not(HasSubstr("0\n")));
  EXPECT_THAT(readFile("/proc/self/maps"), Not(HasSubstr("module.so")));
}

class HostileWindowTest : public testing::TestWithParam<const char*> {
 protected:
  // What is written to standard error by an alert that is shown by a program which answers so.
  std::string toldByAlert() {
    ::setenv("DISPLAY", ":0", 1);
    ::setenv("HOSTILE_ANSWER", GetParam(), 1);
    sandbox_.simulateMachine();
    EXPECT_EQ(::mount(QV_TEST_PROGRAMS "/HostileWindow", kProgram, nullptr, MS_BIND, nullptr), 0);
    sandbox_.becomeUser(Sandbox::kConsoleUser);
    testing::internal::CaptureStderr();
    besideMainLoop([] { EXPECT_TRUE(comesBack([] {})); });
    return testing::internal::GetCapturedStderr();
  }

  Sandbox sandbox_;
};

TEST_P(HostileWindowTest, IsGivenUpAndItsAlertTold) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  EXPECT_THAT(toldByAlert(), EndsWith(kAlert));
}

INSTANTIATE_TEST_SUITE_P(Answers, HostileWindowTest,
                         testing::Values("nothing", "garbage", "long", "never", "unasked",
                                         "descriptors", "end"),
                         [](const auto& answer) { return std::string(answer.param); });

}  // namespace
}  // namespace platform
