#include <X11/Xlib.h>
#include <X11/extensions/Xdamage.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/UpdateMachine.h"
#include "tests/support/WindowProgram.h"
#include "tests/support/XServer.h"

// From exec to the first frame of the status window on the screen, as the X server sees it, beside
// the least that a program with the same toolkit does; and the peak
// memory after a third of a second, with that of the program that shows the window if that is
// another. Needs root, for a machine of its own, and Xvfb.
namespace {

using std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kRounds = 21;
// Smaller drawings are not a window but a part of it, such as the moving bar.
constexpr int kLeastWidth = 300;
constexpr int kLeastHeight = 20;

struct Start {
  Milliseconds untilFrame{};
  double peakMegabytes = 0;
  double windowMegabytes = 0;
};

[[noreturn]] void fail(const char* message) {
  std::fprintf(stderr, "%s\n", message);
  std::exit(1);
}

// Sees what is drawn on the screen.
class WatchedScreen {
 public:
  WatchedScreen() : display_(::XOpenDisplay(nullptr)) {
    int error = 0;
    if (display_ == nullptr || XDamageQueryExtension(display_, &firstEvent_, &error) == 0) {
      fail("the X server cannot tell what is drawn");
    }
    XDamageCreate(display_, DefaultRootWindow(display_), XDamageReportRawRectangles);
    ::XSync(display_, False);
  }
  ~WatchedScreen() { ::XCloseDisplay(display_); }
  WatchedScreen(const WatchedScreen&) = delete;
  WatchedScreen& operator=(const WatchedScreen&) = delete;

  void forgetWhatWasDrawn() {
    ::XSync(display_, False);
    while (::XPending(display_) > 0) takeEvent();
  }

  void awaitFrame() {
    while (!isFrame(takeEvent())) {
    }
  }

 private:
  XEvent takeEvent() {
    pollfd connection{ConnectionNumber(display_), POLLIN, 0};
    if (::XPending(display_) == 0 && ::poll(&connection, 1, 5000) <= 0) {
      fail("no frame within five seconds");
    }
    XEvent event;
    ::XNextEvent(display_, &event);
    return event;
  }

  bool isFrame(const XEvent& event) const {
    if (event.type != firstEvent_ + XDamageNotify) return false;
    const XRectangle& area = reinterpret_cast<const XDamageNotifyEvent&>(event).area;
    return area.width >= kLeastWidth && area.height >= kLeastHeight;
  }

  Display* const display_;
  int firstEvent_ = 0;
};

double peakMegabytes(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) / 1024;
  }
  return 0;
}

Start measure(WatchedScreen& screen, const std::vector<std::string>& command) {
  std::vector<char*> words;
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  screen.forgetWhatWasDrawn();
  const auto begin = steady_clock::now();
  pid_t pid = -1;
  if (::posix_spawn(&pid, words[0], nullptr, nullptr, words.data(), environ) != 0) {
    fail("cannot be started");
  }
  screen.awaitFrame();
  const Milliseconds untilFrame = steady_clock::now() - begin;
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const Start start{untilFrame, peakMegabytes(pid), peakMegabytes(test::windowProgramOf(pid))};
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
  // What the window's end uncovers is no frame of the next one.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  return start;
}

void report(const char* name, std::vector<Start> starts) {
  std::ranges::sort(starts, {}, &Start::untilFrame);
  const double peak = std::ranges::max(starts, {}, &Start::peakMegabytes).peakMegabytes;
  const double window = std::ranges::max(starts, {}, &Start::windowMegabytes).windowMegabytes;
  std::printf(
      "%-24s exec to first frame %6.1f ms (median of %zu), peak memory %5.1f MB, of a window "
      "program %5.1f MB\n",
      name, starts[starts.size() / 2].untilFrame.count(), starts.size(), peak, window);
}

}  // namespace

int main() {
  if (!test::XServer::isAvailable()) fail("this benchmark needs Xvfb");
  const test::UpdateMachine machine;
  const test::XServer server;
  WatchedScreen screen;
  // The worker spins through its first pause meanwhile, as in every run.
  const std::vector<std::string> helper = {QV_TEST_BUNDLE "/Contents/Linux/QVUpdateHelper",
                                           "-source", "/nowhere/A.app", "-destination",
                                           "/nowhere/B.app"};
  std::vector<Start> ours;
  std::vector<Start> theirs;
  for (int round = 0; round <= kRounds; ++round) {
    const Start our = measure(screen, helper);
    const Start their = measure(screen, {QV_BENCHMARK_PEERS "/PulsingWindow"});
    if (round == 0) continue;  // warms the caches
    ours.push_back(our);
    theirs.push_back(their);
  }
  report("QVUpdateHelper", ours);
  report("bare window and bar", theirs);
}
