#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Sandbox.h"
#include "tests/support/UpdateMachine.h"

// A whole silent update of the sample bundle from a disk image: the time beyond the fixed pauses
// and the peak memory, beside `cp -a` of the same bundle. Needs root, for a machine of its own.
namespace {

using std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kRounds = 3;
// Before the updater is killed, after the copy with rights, before the registration, and after the
// host was told.
constexpr Milliseconds kFixedPauses = std::chrono::seconds(3 + 2 + 1 + 1);

template <class Work>
Milliseconds timeOf(const Work& work) {
  const auto begin = steady_clock::now();
  work();
  return steady_clock::now() - begin;
}

Milliseconds update(test::UpdateMachine& machine) {
  return timeOf([&] {
    machine.run({"-source", machine.source(), "-destination", machine.destination(), "-mountpath",
                 machine.mountPoint(), "-silent", "YES"});
  });
}

Milliseconds plainCopy(const test::UpdateMachine& machine, const std::string& target) {
  const std::string command = "cp -a '" + machine.source() + "' '" + target + "'";
  return timeOf([&] {
    if (std::system(command.c_str()) != 0) std::exit(1);  // NOLINT(concurrency-mt-unsafe)
  });
}

double peakMegabytesOfChildren() {
  rusage usage = {};
  ::getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

int measureOnce() {
  test::UpdateMachine machine;
  machine.makeBundle(machine.destination(), "1.0");
  machine.attachDiskImage();
  const Milliseconds copy = plainCopy(machine, machine.sandbox().path("copy.app"));
  const Milliseconds whole = update(machine);
  if (test::UpdateMachine::versionOf(machine.destination()) != "2.0") return 1;
  std::printf(
      "whole update %7.1f ms, %6.1f ms beyond the pauses; cp -a %6.1f ms; "
      "largest process %5.2f MB\n",
      whole.count(), (whole - kFixedPauses).count(), copy.count(), peakMegabytesOfChildren());
  return std::fflush(stdout);
}

// A simulated machine is for the whole life of a process.
bool measureInChild() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(measureOnce());
  int status = 0;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

int main() {
  if (!test::Sandbox::canSimulateMachine()) {
    std::fprintf(stderr, "this benchmark %s\n", test::Sandbox::kNeedsRoot);
    return 1;
  }
  for (int round = 1; round <= kRounds; ++round) {
    if (!measureInChild()) return 1;
  }
}
