// How many lines a second reach the disk from a background thread, through the queue and rotation,
// beside bare write(2) of the same lines and, where it is installed, a rotating logger of the same
// limits that flushes every line. Lines are 95 bytes long.

#include "Shared/QVLog.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "tests/support/Sandbox.h"

#ifdef QV_HAVE_SPDLOG
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

constexpr int kLines = 200'000;
constexpr std::size_t kMessageLength = 66;
const std::string kMessage(kMessageLength, 'm');

void countLines(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * kLines);
}

test::Sandbox& sandbox() {
  static test::Sandbox instance;
  return instance;
}

void bareWrite(benchmark::State& state) {
  const std::string line = "2026-11-20 21:21:11 +0100 - " + kMessage + "\n";
  const std::string path = sandbox().home() + "/bare.log";
  for (auto unused : state) {
    static_cast<void>(unused);
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    for (int i = 0; i < kLines; ++i) {
      if (::write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        state.SkipWithError("a bare write failed");
        break;
      }
    }
    ::close(file);
  }
  countLines(state);
}
BENCHMARK(bareWrite)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

void fastAppendLog(benchmark::State& state) {
  QVLog::createNewLog();
  for (auto unused : state) {
    static_cast<void>(unused);
    std::thread([] {
      for (int i = 0; i < kLines; ++i) QVLog::fastAppendLog("%@", kMessage);
    }).join();
    QVLog::finishWriting();
  }
  countLines(state);
}
BENCHMARK(fastAppendLog)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

// What a caller pays, without the writer's part of the work that a second processor does.
void fastAppendLogEnqueue(benchmark::State& state) {
  for (auto unused : state) {
    static_cast<void>(unused);
    for (int i = 0; i < kLines; ++i) QVLog::fastAppendLog("%@", kMessage);
    state.PauseTiming();
    QVLog::finishWriting();
    state.ResumeTiming();
  }
  countLines(state);
}
BENCHMARK(fastAppendLogEnqueue)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);

#ifdef QV_HAVE_SPDLOG
void rotatingPeerFlushedPerLine(benchmark::State& state) {
  const auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
      sandbox().home() + "/peer.log", 500'000, 4);
  spdlog::logger logger("peer", sink);
  logger.set_pattern("%Y-%m-%d %H:%M:%S %z - %v");
  logger.flush_on(spdlog::level::info);
  for (auto unused : state) {
    static_cast<void>(unused);
    for (int i = 0; i < kLines; ++i) logger.info("{}", kMessage);
  }
  countLines(state);
}
BENCHMARK(rotatingPeerFlushedPerLine)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);
#endif

}  // namespace

int main(int argc, char** argv) {
  if (test::Sandbox::canSimulateMachine()) {
    sandbox().simulateMachine();
    sandbox().becomeUser(test::Sandbox::kConsoleUser);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
