#include "platform/CrashLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/DetachedThread.h"
#include "platform/ProcessInfo.h"
#include "platform/linux/processes/SignalMaskedThread.h"
#include "tests/support/ExhaustStack.h"
#include "tests/support/Sandbox.h"

namespace {

using test::Sandbox;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
namespace fs = std::filesystem;
namespace crash_log = platform::crash_log;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// The signal that ends a child process that does `work`; 0 when none does.
int signalOf(const std::function<void()>& work) {
  const pid_t child = ::fork();
  if (child == 0) {
    work();
    ::_exit(0);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
  return names;
}

// A sanitizer leaves the abort alone, but no other mistake.
int signalOfAbortAfterInstalling(const std::string& folder) {
  return signalOf([&] {
    if (crash_log::installWriter(folder)) std::abort();
  });
}

class CrashLogTest : public testing::Test {
 protected:
  Sandbox sandbox;
  std::string folder = sandbox.path("home/tester/Library/Logs/DiagnosticReports");
};

TEST_F(CrashLogTest, ACrashIsWrittenIntoTheFolderWhichIsMade) {
  EXPECT_EQ(signalOfAbortAfterInstalling(folder), SIGABRT);
  char host[256] = {};
  ASSERT_EQ(::gethostname(host, sizeof host), 0);
  const std::string name = std::string(host).substr(0, std::string(host).find('.'));
  EXPECT_THAT(namesIn(folder),
              ElementsAre(MatchesRegex("CrashLogTest_[-0-9]+_" + name + "\\.crash")));
}

TEST_F(CrashLogTest, TheLogBeginsWithTheProgramAndItsVersion) {
  signalOfAbortAfterInstalling(folder);
  const std::string text = test::readFile(folder + "/" + namesIn(folder).at(0));
  EXPECT_THAT(text, testing::StartsWith("Process:         CrashLogTest ["));
  EXPECT_THAT(text, HasSubstr("/CrashLogTest\nIdentifier:      (null)\nVersion:         (null)\n"));
  EXPECT_THAT(
      text,
      HasSubstr("\nSystem:          " + platform::process_info::operatingSystemVersion() + ", "));
  EXPECT_THAT(text, HasSubstr("Signal:          SIGABRT (6), "));
}

TEST_F(CrashLogTest, WithoutACrashThereIsAnEmptyFolder) {
  EXPECT_EQ(signalOf([&] { crash_log::installWriter(folder); }), 0);
  EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST_F(CrashLogTest, AFolderThatCannotBeMadeIsRefused) {
  sandbox.makeFile("file");
  EXPECT_FALSE(crash_log::installWriter(sandbox.path("file/DiagnosticReports")));
}

TEST_F(CrashLogTest, AnApplicationWithClosedStandardEndsLeavesAWholeLog) {
  signalOf([&] {
    for (const int end : {0, 1, 2}) ::close(end);
    if (crash_log::installWriter(folder)) std::abort();
  });
  EXPECT_THAT(test::readFile(folder + "/" + namesIn(folder).at(0)), HasSubstr("libc.so.6  "));
}

TEST_F(CrashLogTest, ADetachedThreadThatExhaustsItsStackLeavesALog) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer handles SIGSEGV itself";
  EXPECT_EQ(signalOf([&] {
              crash_log::installWriter(folder);
              platform::detachThread([] { test::exhaustStack(); });
              for (;;) ::pause();
            }),
            SIGSEGV);
  EXPECT_EQ(namesIn(folder).size(), 1U);
}

TEST_F(CrashLogTest, AQuietThreadThatExhaustsItsStackLeavesALog) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer handles SIGSEGV itself";
  EXPECT_EQ(signalOf([&] {
              crash_log::installWriter(folder);
              platform::startSignalMaskedThread([] { test::exhaustStack(); }).join();
            }),
            SIGSEGV);
  EXPECT_EQ(namesIn(folder).size(), 1U);
}

TEST_F(CrashLogTest, AReserveIsGivenBackAtTheThreadsEnd) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer gives threads such a stack itself";
  EXPECT_EQ(signalOf([&] {
              crash_log::installWriter(folder);
              std::thread([] {
                stack_t stack{};
                {
                  const crash_log::ThreadReserve reserve;
                  ::sigaltstack(nullptr, &stack);
                  if ((stack.ss_flags & SS_DISABLE) != 0) ::raise(SIGKILL);
                }
                ::sigaltstack(nullptr, &stack);
                if ((stack.ss_flags & SS_DISABLE) == 0) ::raise(SIGKILL);
              }).join();
            }),
            0);
}

// The superuser, with anna at the console.
class CrashLogSuperuserTest : public CrashLogTest {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox.simulateMachine();
    sandbox.setConsoleUser(Sandbox::kConsoleUser);
    folder = sandbox.homeOf(Sandbox::kConsoleUser) + "/Library/Logs/DiagnosticReports";
  }
};

TEST_F(CrashLogSuperuserTest, ALogInAPersonsHomeIsThatPersons) {
  EXPECT_EQ(signalOfAbortAfterInstalling(folder), SIGABRT);
  ASSERT_EQ(namesIn(folder).size(), 1U);
  struct stat status {};
  ASSERT_EQ(::stat((folder + "/" + namesIn(folder).at(0)).c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, Sandbox::kConsoleUserId);
  EXPECT_EQ(status.st_gid, Sandbox::kConsoleUserId);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(CrashLogSuperuserTest, ALinkInAPersonsHomeLeadsNowhere) {
  const std::string elsewhere = sandbox.makeDirectory("elsewhere");
  fs::create_directories(fs::path(folder).parent_path());
  fs::create_symlink(elsewhere, folder);
  EXPECT_FALSE(crash_log::installWriter(folder));
}

TEST_F(CrashLogSuperuserTest, AFolderThatIsSwappedForALinkStaysTheOneThatWasOpened) {
  const std::string elsewhere = sandbox.makeDirectory("elsewhere");
  EXPECT_EQ(signalOf([&] {
              crash_log::installWriter(folder);
              fs::rename(folder, folder + ".moved");
              fs::create_symlink(elsewhere, folder);
              std::abort();
            }),
            SIGABRT);
  EXPECT_THAT(namesIn(elsewhere), IsEmpty());
  EXPECT_EQ(namesIn(folder + ".moved").size(), 1U);
}

}  // namespace
