#include <gio/gio.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Shared/QVTaskEx.h"
#include "benchmarks/Timing.h"

// How fast a program's output reaches a delegate on a thread of its own, beside GLib's subprocess
// whose stream is read on a thread: until the first chunk is there, and by volume. In one run and
// taking turns.
namespace {

using std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;
using timing::median;
using Words = std::vector<std::string>;

const Words word = {"/bin/echo", "first"};
const Words gibibyte = {"/usr/bin/head", "-c", "1G", "/dev/zero"};

struct Times {
  double untilFirst = 0;
  double untilEnd = 0;
};

// Notes when the first chunk came and when the last.
class Reader {
 public:
  void take(const platform::Data& data, QVTaskEx&, const std::any&) { note(data.size()); }
  void note(std::size_t size) {
    const double now = Microseconds(steady_clock::now() - begin_).count();
    if (times_.untilFirst == 0) times_.untilFirst = now;
    times_.untilEnd = now;
    if (size == 0) done_.set_value(times_);
  }
  Times times() { return done_.get_future().get(); }

 private:
  const steady_clock::time_point begin_ = steady_clock::now();
  Times times_;
  std::promise<Times> done_;
};

Times ours(const Words& words) {
  const auto reader = std::make_shared<Reader>();
  QVTaskEx::create()->asyncDataFromTask(words[0], Words(words.begin() + 1, words.end()), reader,
                                        &Reader::take, {});
  return reader->times();
}

Times peers(const Words& words) {
  const auto reader = std::make_shared<Reader>();
  std::vector<const char*> arguments;
  for (const std::string& text : words) arguments.push_back(text.c_str());
  arguments.push_back(nullptr);
  std::thread thread([&] {
    const auto flags = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                     G_SUBPROCESS_FLAGS_STDERR_SILENCE);
    GSubprocess* const process = g_subprocess_newv(arguments.data(), flags, nullptr);
    if (process == nullptr) std::abort();
    GInputStream* const stream = g_subprocess_get_stdout_pipe(process);
    for (gssize count = 1; count > 0;) {
      GBytes* const bytes = g_input_stream_read_bytes(stream, 1 << 16, nullptr, nullptr);
      if (bytes == nullptr) std::abort();
      count = static_cast<gssize>(g_bytes_get_size(bytes));
      reader->note(g_bytes_get_size(bytes));
      g_bytes_unref(bytes);
    }
    g_object_unref(process);
  });
  const Times times = reader->times();
  thread.join();
  return times;
}

// Answers whether ours took less time.
bool compare(const char* what, int rounds, const Words& words, double Times::*which) {
  std::vector<double> oursTimes;
  std::vector<double> peersTimes;
  for (int round = 0; round < rounds; ++round) {
    if (round % 2 == 0) peersTimes.push_back(peers(words).*which);
    oursTimes.push_back(ours(words).*which);
    if (round % 2 == 1) peersTimes.push_back(peers(words).*which);
  }
  const bool ahead = median(oursTimes) < median(peersTimes);
  std::printf("%-24s %10.0f us, GSubprocess %10.0f us%s\n", what, median(oursTimes),
              median(peersTimes), ahead ? "" : " BEHIND");
  return ahead;
}

}  // namespace

int main() {
  bool ok = compare("first chunk", 1000, word, &Times::untilFirst);
  ok = compare("1 GiB to the delegate", 9, gibibyte, &Times::untilEnd) && ok;
  return ok ? 0 : 1;
}
