#include "Shared/CrashLogs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

#include "Shared/QVLog.h"
#include "platform/Exception.h"
#include "platform/ProcessInfo.h"
#include "tests/support/Sandbox.h"

// What is written at a crash is what is found afterwards.
namespace {

using test::Sandbox;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Optional;
using testing::StartsWith;

const std::chrono::system_clock::time_point kLongAgo;

class CrashLogsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
  }
  // Has a process of this program abort in `work`, and looks for its log.
  static std::optional<std::string> logAfter(const std::function<void()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
      crash_logs::startWriting();
      work();
      ::_exit(0);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
    return crash_logs::newerThan(kLongAgo, platform::process_info::processName());
  }
  static std::optional<std::string> logOfCrash() { return logAfter(std::abort); }
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

TEST_F(CrashLogsTest, TheNewestTwentyOfThisProgramStay) {
  sandbox.becomeUser(Sandbox::kConsoleUser);
  const std::string folder = sandbox.home() + "/Library/Logs/DiagnosticReports";
  std::filesystem::create_directories(folder);
  const auto now = std::filesystem::file_time_type::clock::now();
  for (int age = 0; age < 25; ++age) {
    for (const char* program : {"CrashLogsTest", "Other"}) {
      const std::string log = folder + "/" + program + "_" + std::to_string(age) + "_host.crash";
      std::ofstream(log) << age;
      std::filesystem::last_write_time(log, now - std::chrono::hours(age + 1));
    }
  }
  crash_logs::startWriting();
  for (int age = 0; age < 25; ++age) {
    const std::string end = "_" + std::to_string(age) + "_host.crash";
    EXPECT_EQ(std::filesystem::exists(folder + "/CrashLogsTest" + end), age < 20) << age;
    EXPECT_TRUE(std::filesystem::exists(folder + "/Other" + end)) << age;
  }
}

// First the reason reaches the log, then the crash log is written.
TEST_F(CrashLogsTest, AnUncaughtExceptionIsLoggedAndLeavesACrashLog) {
  sandbox.becomeUser(Sandbox::kConsoleUser);
  const auto fail = [] { throw platform::Exception("NSGenericException", "no luck"); };
  const auto log = logAfter([&]() noexcept {
    QVLog::createNewLog();
    fail();
  });
  ASSERT_TRUE(log);
  EXPECT_THAT(test::readFile(*log), HasSubstr("Signal:          SIGABRT (6), "));
  EXPECT_THAT(test::readFile(sandbox.home() + "/Library/Logs/Quorvale/CrashLogsTest.1.log"),
              EndsWith(" - no luck\n"));
}

}  // namespace
