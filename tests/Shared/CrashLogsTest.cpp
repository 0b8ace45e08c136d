#include "Shared/CrashLogs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>

#include "platform/ProcessInfo.h"
#include "tests/support/Sandbox.h"

// What is written at a crash is what is found afterwards.
namespace {

using test::Sandbox;
using testing::Optional;
using testing::StartsWith;

const std::chrono::system_clock::time_point kLongAgo;

class CrashLogsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
  }
  // Has a process of this program crash, and looks for its log.
  static std::optional<std::string> logOfCrash() {
    const pid_t child = ::fork();
    if (child == 0) {
      crash_logs::startWriting();
      std::abort();
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
    return crash_logs::newerThan(kLongAgo, platform::process_info::processName());
  }
  Sandbox sandbox;
};

TEST_F(CrashLogsTest, AnOrdinaryUsersIsInTheUsersDiagnosticReports) {
  sandbox.becomeUser(Sandbox::kConsoleUser);
  EXPECT_THAT(logOfCrash(),
              Optional(StartsWith(sandbox.home() + "/Library/Logs/DiagnosticReports/")));
}

TEST_F(CrashLogsTest, TheSuperusersIsInThatOfThePersonAtTheConsole) {
  sandbox.setConsoleUser(Sandbox::kConsoleUser);
  EXPECT_THAT(logOfCrash(), Optional(StartsWith(sandbox.homeOf(Sandbox::kConsoleUser) +
                                                "/Library/Logs/DiagnosticReports/")));
}

TEST_F(CrashLogsTest, WithNobodyAtTheConsoleTheSuperusersIsInTheMachines) {
  EXPECT_THAT(logOfCrash(),
              Optional(StartsWith("/var/lib/quorvale/Library/Logs/DiagnosticReports/")));
}

TEST_F(CrashLogsTest, AUserWithoutAHomeToWriteToDiesAllTheSame) {
  sandbox.becomeUser(Sandbox::kConsoleUser);
  ::setenv("HOME", "/proc", 1);
  EXPECT_EQ(logOfCrash(), std::nullopt);
}

}  // namespace
