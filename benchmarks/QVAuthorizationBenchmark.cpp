#include "Shared/QVAuthorization.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "benchmarks/Timing.h"
#include "tests/support/Polkit.h"
#include "tests/support/Sandbox.h"

// How long it takes to run a privileged tool to its end through the live session, beside a bare
// spawn and beside a fresh pkexec(1) that nobody is asked about; and how long a session's start
// with a password and its end take. In one run, taking turns, on a real system bus and authority.
// Needs root, for the private namespace; what is measured runs as an ordinary user.
namespace {

using timing::median;
using timing::microseconds;

constexpr char kTool[] = "/bin/true";
constexpr int kRounds = 300;
constexpr int kStarts = 20;

void spawnAndWait(const std::vector<const char*>& words) {
  std::vector<char*> arguments;
  for (const char* word : words) arguments.push_back(const_cast<char*>(word));
  arguments.push_back(nullptr);
  pid_t child = 0;
  if (::posix_spawn(&child, words[0], nullptr, nullptr, arguments.data(), environ) != 0) {
    std::abort();
  }
  int status = -1;
  if (::waitpid(child, &status, 0) != child || status != 0) std::abort();
}

bool report(const char* what, double value, const char* unit, double limit, bool atMost) {
  const bool ok = atMost ? value <= limit : value >= limit;
  std::printf("%-52s %8.2f %s (at %s %g)%s\n", what, value, unit, atMost ? "most" : "least", limit,
              ok ? "" : " MISSED");
  return ok;
}

void check(bool ok) {
  if (!ok) std::abort();
}

bool measureRuns(QVAuthorization& session) {
  std::vector<double> live;
  std::vector<double> bare;
  std::vector<double> fresh;
  for (int round = 0; round < kRounds; ++round) {
    live.push_back(microseconds([&] { check(session.authExecTask(kTool, {}, false) == 0); }));
    bare.push_back(microseconds([] { spawnAndWait({kTool}); }));
    if (round % 5 == 0) {
      fresh.push_back(microseconds([] { spawnAndWait({"/usr/bin/pkexec", kTool}); }));
    }
  }
  std::printf("a run of %s: live session %.0f us, bare spawn %.0f us, fresh pkexec %.0f us\n",
              kTool, median(live), median(bare), median(fresh));
  bool ok = report("a fresh pkexec, in live runs", median(fresh) / median(live), "times", 8, false);
  return report("a live run, in bare spawns", median(live) / median(bare), "times", 1.6, true) &&
         ok;
}

bool measureLife(QVAuthorization& session) {
  std::vector<double> starts;
  std::vector<double> ends;
  for (int round = 0; round < kStarts; ++round) {
    ends.push_back(microseconds([&] { session.authEnd(); }));
    starts.push_back(microseconds([&] {
      check(session.authStartWithUser(test::Polkit::kAdministrator, test::Polkit::kPassword));
    }));
  }
  bool ok = report("session start with a password", median(starts) / 1000, "ms", 100, true);
  return report("session end", median(ends) / 1000, "ms", 5, true) && ok;
}

// Nobody is asked about the peer, so that it is its own cost that is measured.
void letPkexecPass() {
  std::ofstream("/etc/polkit-1/rules.d/00-benchmark.rules")
      << "polkit.addRule(function(action, subject) {\n"
         "  if (action.id == 'org.freedesktop.policykit.exec') return polkit.Result.YES;\n"
         "});\n";
}

}  // namespace

int main() {
  if (!test::Sandbox::canSimulateMachine()) {
    std::puts("SKIPPED: needs root, for a private mount namespace");
    return 0;
  }
  test::Sandbox sandbox;
  sandbox.simulateMachine();
  letPkexecPass();
  const test::Polkit polkit(sandbox);
  const pid_t child = test::startAs(sandbox, test::Sandbox::kConsoleUser, [] {
    QVAuthorization& session = QVAuthorization::sharedController(false);
    check(session.authStartWithUser(test::Polkit::kAdministrator, test::Polkit::kPassword));
    const bool runs = measureRuns(session);
    const bool life = measureLife(session);
    std::fflush(nullptr);
    ::_exit(runs && life ? 0 : 1);
  });
  return test::passed(child) ? 0 : 1;
}
