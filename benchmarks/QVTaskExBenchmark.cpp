#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Shared/QVTaskEx.h"
#include "benchmarks/Timing.h"

// What running a program and capturing its output cost beside the bare system calls, in one run and
// taking turns. A child that costs more in a large process would show in the second line.
namespace {

using timing::median;
using timing::microseconds;
using timing::Work;

constexpr double kLimit = 1.15;

void require(bool ok, const char* what) {
  if (ok) return;
  std::perror(what);
  std::exit(1);
}

pid_t spawn(std::vector<std::string> words, const posix_spawn_file_actions_t* actions) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t process = 0;
  require(::posix_spawn(&process, arguments[0], actions, nullptr, arguments.data(), environ) == 0,
          "posix_spawn");
  return process;
}

void bareRun() {
  const pid_t process = spawn({"/bin/true"}, nullptr);
  require(::waitpid(process, nullptr, 0) == process, "waitpid");
}

void run() {
  require(QVTaskEx::runTask("/bin/true", std::nullopt), "runTask");
}

const std::vector<std::string> talker = {"/usr/bin/head", "-c", "1G", "/dev/zero"};

// The least that a reader who keeps what he reads can do.
void bareCapture() {
  int ends[2];
  require(::pipe2(ends, O_CLOEXEC) == 0, "pipe");
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  const pid_t process = spawn(talker, &actions);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  constexpr std::size_t kBlock = 1 << 16;
  std::size_t size = 0;
  std::size_t capacity = 0;
  char* bytes = nullptr;
  for (;;) {
    if (capacity - size < kBlock) {
      capacity = std::max(2 * capacity, kBlock);
      bytes = static_cast<char*>(std::realloc(bytes, capacity));
      require(bytes != nullptr, "realloc");
    }
    const ssize_t count = ::read(ends[0], bytes + size, kBlock);
    if (count <= 0) break;
    size += static_cast<std::size_t>(count);
  }
  require(size == 1U << 30, "bare read loop");
  std::free(bytes);
  ::close(ends[0]);
  require(::waitpid(process, nullptr, 0) == process, "waitpid");
}

void capture() {
  std::shared_ptr<platform::Task> task;
  const auto data = QVTaskEx::dataFromTask(
      talker[0], QVTaskEx::Arguments{talker.begin() + 1, talker.end()}, &task);
  require(data && data->size() == 1U << 30, "dataFromTask");
  task->waitUntilExit();
}

// Each round does both, and every other round in the other order.
bool compare(const char* what, int rounds, const Work& ours, const Work& bare) {
  std::vector<double> oursTimes;
  std::vector<double> bareTimes;
  for (int round = 0; round < rounds; ++round) {
    if (round % 2 == 0) bareTimes.push_back(microseconds(bare));
    oursTimes.push_back(microseconds(ours));
    if (round % 2 == 1) bareTimes.push_back(microseconds(bare));
  }
  const double ratio = median(oursTimes) / median(bareTimes);
  std::printf("%-44s %10.0f us, bare %10.0f us, ratio %.3f (at most %.2f)%s\n", what,
              median(oursTimes), median(bareTimes), ratio, kLimit,
              ratio <= kLimit ? "" : " MISSED");
  return ratio <= kLimit;
}

}  // namespace

int main() {
  constexpr std::size_t kMegabyte = 1 << 20;
  const std::vector<char> small(10 * kMegabyte, 1);
  bool ok = compare("runTask of /bin/true, process of 10 MB", 2000, run, bareRun);
  const std::vector<char> large(1024 * kMegabyte, 1);
  ok = compare("runTask of /bin/true, process of 1 GB", 2000, run, bareRun) && ok;
  ok = compare("capturing 1 GiB", 9, capture, bareCapture) && ok;
  return ok && small.back() + large.back() == 2 ? 0 : 1;
}
