#include "platform/ProcessInfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <thread>
#include <vector>

#include "tests/support/Sandbox.h"

namespace {

using test::Sandbox;
using testing::HasSubstr;
using testing::MatchesRegex;
namespace process_info = platform::process_info;

TEST(ProcessInfoTest, TheProcessIsNamedAfterItsFile) {
  EXPECT_EQ(process_info::processName(), "ProcessInfoTest");
  EXPECT_THAT(process_info::executablePath(), testing::EndsWith("/ProcessInfoTest"));
}

TEST(ProcessInfoTest, TheSystemIsNamedAsItsReleaseFileNamesIt) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  Sandbox sandbox;
  sandbox.simulateMachine();
  ::unlink("/etc/os-release");
  sandbox.makeFile("etc/os-release", "NAME=Sample\nPRETTY_NAME=\"Sample System 7 (test)\"\n");
  EXPECT_EQ(process_info::operatingSystemVersion(), "Sample System 7 (test)");
}

TEST(ProcessInfoTest, TheMachineHasProcessorsAndMemory) {
  EXPECT_EQ(process_info::processorCount(), ::sysconf(_SC_NPROCESSORS_ONLN));
  EXPECT_GE(process_info::processorCount(), 1);
  EXPECT_GT(process_info::physicalMemory(), 64ULL << 20);
  EXPECT_LT(process_info::physicalMemory(), 1ULL << 50);
}

TEST(ProcessInfoTest, UniqueStringsAreUuidsAndNeverRepeat) {
  EXPECT_THAT(process_info::globallyUniqueString(),
              MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
  std::set<std::string> seen;
  for (int i = 0; i < 10'000; ++i) seen.insert(process_info::globallyUniqueString());
  EXPECT_EQ(seen.size(), 10'000U);
}

TEST(ProcessInfoTest, AForkedProcessAnswersOtherUniqueStrings) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const std::string mine = process_info::globallyUniqueString();
    ::_exit(::write(ends[1], mine.data(), mine.size()) == 36 ? 0 : 1);
  }
  ::waitpid(child, nullptr, 0);
  std::string theirs(36, '\0');
  ASSERT_EQ(::read(ends[0], theirs.data(), theirs.size()), 36);
  EXPECT_NE(theirs, process_info::globallyUniqueString());
}

TEST(ProcessInfoTest, TheUserIsAskedForAnewAndChangesForEveryThread) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  ASSERT_TRUE(process_info::isSuperuser());
  EXPECT_TRUE(process_info::setUserId(Sandbox::kOtherUserId));
  EXPECT_EQ(process_info::userId(), Sandbox::kOtherUserId);
  EXPECT_FALSE(process_info::isSuperuser());
  std::thread([] { EXPECT_EQ(::geteuid(), Sandbox::kOtherUserId); }).join();
}

TEST(ProcessInfoTest, AnOrdinaryUserStaysWhatHeIs) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  ASSERT_TRUE(process_info::setUserId(Sandbox::kOtherUserId));
  EXPECT_FALSE(process_info::setUserId(process_info::kSuperuser));
  EXPECT_EQ(process_info::userId(), Sandbox::kOtherUserId);
}

TEST(ProcessInfoTest, AProgramWhoseFileWasRemovedKeepsItsName) {
  const Sandbox sandbox;
  for (const std::string name : {"copy", "renamed (deleted)"}) {
    const std::string path = sandbox.path(name);
    const std::string command = "cp '" + process_info::executablePath() + "' '" + path + "' && '" +
                                path +
                                "' --gtest_also_run_disabled_tests "
                                "--gtest_filter=*PrintsItsNameWithoutItsFile";
    FILE* output = ::popen(command.c_str(), "r");
    ASSERT_NE(output, nullptr);
    std::string text;
    char buffer[4096];
    while (const std::size_t count = ::fread(buffer, 1, sizeof buffer, output)) {
      text.append(buffer, count);
    }
    ::pclose(output);
    EXPECT_THAT(text, HasSubstr("name: " + path + "\n"));
  }
}

// Run by the test above as a program of its own.
TEST(ProcessInfoTest, DISABLED_PrintsItsNameWithoutItsFile) {
  ASSERT_EQ(::unlink(process_info::executablePath().c_str()), 0);
  std::printf("name: %s\n", process_info::executablePath().c_str());
}

}  // namespace
