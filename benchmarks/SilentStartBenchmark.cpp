#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Sandbox.h"
#include "tests/support/UpdateMachine.h"

// From exec to the first line of the log on disk, in a silent run, beside the least that a program
// with the same main loop does; and the memory at that line. Needs root, for a machine of its own.
namespace {

using std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kRounds = 21;

struct Start {
  Milliseconds untilFirstLine{};
  double peakMegabytes = 0;
  bool toolkitMapped = false;
};

// Tells when a file that is replaced or written has a first line.
class FirstLine {
 public:
  explicit FirstLine(std::string path)
      : path_(std::move(path)), watch_(::inotify_init1(IN_CLOEXEC)) {
    const std::string folder = std::filesystem::path(path_).parent_path();
    ::inotify_add_watch(watch_, folder.c_str(), IN_MODIFY | IN_MOVED_TO);
  }
  ~FirstLine() { ::close(watch_); }
  FirstLine(const FirstLine&) = delete;
  FirstLine& operator=(const FirstLine&) = delete;

  void await() {
    while (!std::filesystem::exists(path_) || std::filesystem::file_size(path_) == 0) {
      pollfd event{watch_, POLLIN, 0};
      if (::poll(&event, 1, 5000) <= 0) {
        std::fputs("no line within five seconds\n", stderr);
        std::exit(1);
      }
      char events[4096];
      if (::read(watch_, events, sizeof events) < 0) std::exit(1);
    }
  }

 private:
  std::string path_;
  int watch_;
};

double peakMegabytes(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) / 1024;
  }
  return 0;
}

bool mapsToolkit(pid_t pid) {
  return test::readFile("/proc/" + std::to_string(pid) + "/maps").find("libgtk") !=
         std::string::npos;
}

Start measure(const std::vector<std::string>& command, const std::string& log) {
  std::vector<char*> words;
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  FirstLine firstLine(log);
  const auto begin = steady_clock::now();
  pid_t pid = -1;
  if (::posix_spawn(&pid, words[0], nullptr, nullptr, words.data(), environ) != 0) std::exit(1);
  firstLine.await();
  const Start start{steady_clock::now() - begin, peakMegabytes(pid), mapsToolkit(pid)};
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
  return start;
}

void report(const char* name, std::vector<Start> starts) {
  std::ranges::sort(starts, {}, &Start::untilFirstLine);
  const Start& median = starts[starts.size() / 2];
  const double peak = std::ranges::max(starts, {}, &Start::peakMegabytes).peakMegabytes;
  const bool toolkit = std::ranges::any_of(starts, &Start::toolkitMapped);
  std::printf(
      "%-24s exec to first line %6.2f ms (median of %zu), peak memory %5.2f MB, toolkit %s\n", name,
      median.untilFirstLine.count(), starts.size(), peak, toolkit ? "MAPPED" : "not mapped");
}

}  // namespace

int main() {
  if (!test::Sandbox::canSimulateMachine()) {
    std::fprintf(stderr, "this benchmark %s\n", test::Sandbox::kNeedsRoot);
    return 1;
  }
  const test::UpdateMachine machine;
  const std::string peerLog = "/var/lib/quorvale/peer.log";
  std::vector<Start> helper;
  std::vector<Start> peer;
  for (int round = 0; round <= kRounds; ++round) {
    std::filesystem::remove(test::UpdateMachine::logPath());
    const Start ours = measure({QV_TEST_BUNDLE "/Contents/Linux/QVUpdateHelper", "-silent", "YES"},
                               test::UpdateMachine::logPath());
    std::ofstream(peerLog).close();
    const Start theirs = measure({QV_BENCHMARK_PEERS "/GLibLoop", peerLog}, peerLog);
    if (round == 0) continue;  // warms the caches
    helper.push_back(ours);
    peer.push_back(theirs);
  }
  report("QVUpdateHelper, silent", helper);
  report("bare GLib loop", peer);
}
