#include "platform/linux/crash/CrashWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/ChildProgram.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

// By tests/programs/CrashProbe.cpp, which crashes in a process of its own and is built without a
// sanitizer.
namespace {

using test::ChildProgram;
using test::Sandbox;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
namespace fs = std::filesystem;

constexpr char kProbe[] = QV_TEST_PROGRAMS "/CrashProbe";

dev_t deviceOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}

class CrashWriterTest : public testing::Test {
 protected:
  // The signal that ended the probe; 0 when none did.
  int signalAfter(const std::string& way) {
    ChildProgram probe({kProbe, folder, way});
    return signalOf(probe);
  }
  static int signalOf(ChildProgram& probe) {
    const auto status = probe.waitForEnd();
    EXPECT_TRUE(status) << "the probe hangs";
    return status && WIFSIGNALED(*status) ? WTERMSIG(*status) : 0;
  }
  // Hidden ones too.
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder)) {
      found.push_back(entry.path().filename());
    }
    std::ranges::sort(found);
    return found;
  }
  // The text of the one log that there is.
  std::string log() const {
    const auto found = names();
    EXPECT_EQ(found.size(), 1U);
    return found.size() == 1 ? test::readFile(folder + "/" + found.front()) : "";
  }
  static std::size_t framesOf(const std::string& log) {
    std::size_t frames = 0;
    for (std::size_t at = 0; (at = log.find(" + 0x", at)) != std::string::npos; ++at) ++frames;
    return frames;
  }

  Sandbox sandbox;
  std::string folder = sandbox.makeDirectory("reports");
};

TEST_F(CrashWriterTest, ACrashLeavesOneLogAndTheProcessDiesOfTheSameSignal) {
  EXPECT_EQ(signalAfter("null"), SIGSEGV);
  EXPECT_THAT(
      names(),
      ElementsAre(MatchesRegex(R"(Crash Probe_[0-9]{4}-[0-9]{2}-[0-9]{2}-[0-9]{6}_host\.crash)")));
}

TEST_F(CrashWriterTest, TheLogSaysWhatHappenedWhereAndWhen) {
  signalAfter("null");
  const std::string text = log();
  EXPECT_THAT(text, testing::StartsWith("Process:         CrashProbe\n"));
  EXPECT_THAT(text, ContainsRegex("Date/Time:       [0-9]{4}-[0-9]{2}-[0-9]{2} "
                                  "[0-9]{2}:[0-9]{2}:[0-9]{2} \\+0130\n"));
  EXPECT_THAT(text, HasSubstr("Signal:          SIGSEGV (11), SEGV_MAPERR (1)\n"
                              "Fault address:   0x0\n"));
  EXPECT_THAT(text, ContainsRegex("Thread:          [0-9]+ \"CrashProbe\", the main thread\n"));
  EXPECT_THAT(text, ContainsRegex("\n0    CrashProbe +0x[0-9a-f]+ \\+ 0x[0-9a-f]+\n"));
  EXPECT_THAT(text,
              ContainsRegex("0x[0-9a-f]+ - 0x[0-9a-f]+  /[^ ]+/libc\\.so\\.6  [0-9a-f]{40}\n"));
}

// The function is found again in the program's own file by the offset in the log.
TEST_F(CrashWriterTest, TheFirstFrameIsTheFunctionThatCrashed) {
  if (std::system("command -v addr2line >/dev/null") != 0) {
    GTEST_SKIP() << "needs addr2line of the binutils";
  }
  signalAfter("null");
  const std::string text = log();
  const std::size_t offset = text.find("0x", text.find(" + 0x"));
  const std::string output = sandbox.path("function");
  const std::string command = std::string("addr2line -f -C -e '") + kProbe + "' " +
                              text.substr(offset, text.find('\n', offset) - offset) + " > " +
                              output;
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_THAT(test::readFile(output), HasSubstr("crashHere"));
}

TEST_F(CrashWriterTest, TheLogIsForItsOwnersEyesAlone) {
  ::umask(0);
  signalAfter("null");
  struct stat status {};
  ASSERT_EQ(::stat((folder + "/" + names().at(0)).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(CrashWriterTest, AnExhaustedStackLeavesALogWithItsFirstHundredFrames) {
  EXPECT_EQ(signalAfter("stack"), SIGSEGV);
  EXPECT_EQ(framesOf(log()), 100U);
  EXPECT_THAT(log(), HasSubstr("(the frames that follow are left out)\n"));
}

TEST_F(CrashWriterTest, AThreadsExhaustedStackLeavesALogToo) {
  EXPECT_EQ(signalAfter("thread-stack"), SIGSEGV);
  EXPECT_EQ(framesOf(log()), 100U);
}

TEST_F(CrashWriterTest, ACrashInAThreadIsThatThreads) {
  EXPECT_EQ(signalAfter("thread"), SIGSEGV);
  EXPECT_THAT(log(), ContainsRegex("Thread:          [0-9]+ \"probe-worker\"\n"));
}

TEST_F(CrashWriterTest, TwoThreadsThatCrashAtOnceLeaveOneWholeLog) {
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(signalAfter("two"), SIGSEGV);
    EXPECT_THAT(log(), HasSubstr("libc.so.6  "));
    fs::remove_all(folder);
    sandbox.makeDirectory("reports");
  }
}

TEST_F(CrashWriterTest, ACrashUnderTheAllocatorsLockLeavesALog) {
  EXPECT_EQ(signalAfter("allocator"), SIGABRT);
  EXPECT_THAT(log(), HasSubstr("Signal:          SIGABRT (6), SI_TKILL (-6)\n"));
}

TEST_F(CrashWriterTest, ACrashUnderTheLoadersLockLeavesALog) {
  EXPECT_EQ(signalAfter("loader"), SIGSEGV);
  EXPECT_GE(framesOf(log()), 3U);
}

TEST_F(CrashWriterTest, ACrashWhileAnotherThreadHoldsTheLoadersLockLeavesALog) {
  EXPECT_EQ(signalAfter("loader-locked"), SIGSEGV);
  EXPECT_GE(framesOf(log()), 3U);
}

TEST_F(CrashWriterTest, AFaultWhileTheLogIsWrittenCostsThatSectionAlone) {
  EXPECT_EQ(signalAfter("lost-stack"), SIGSEGV);
  EXPECT_THAT(log(), HasSubstr("(interrupted by signal 11)\n\nModules"));
  EXPECT_THAT(log(), HasSubstr("libc.so.6  "));
}

TEST_F(CrashWriterTest, ALogThatTakesTooLongIsGivenUp) {
  ChildProgram probe({kProbe, folder, "slow-stack"});
  const int signal = signalOf(probe);
  if (!probe.lines().empty()) GTEST_SKIP() << "needs userfaultfd(2)";
  EXPECT_EQ(signal, SIGSEGV);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CrashWriterTest, AFileSystemThatDoesNotAnswerCannotKeepTheProcess) {
  if (std::system("command -v squashfuse mksquashfs >/dev/null && test -w /dev/fuse") != 0) {
    GTEST_SKIP() << "needs squashfuse, mksquashfs and /dev/fuse";
  }
  const std::string image = sandbox.path("image");
  ASSERT_EQ(std::system(("mksquashfs " + folder + " " + image + " >/dev/null").c_str()), 0);
  const std::string mounted = sandbox.makeDirectory("mounted");
  ChildProgram server({"/usr/bin/squashfuse", "-f", image, mounted});
  ASSERT_TRUE(test::waitFor([&] { return deviceOf(mounted) != deviceOf(folder); }));
  ChildProgram probe({kProbe, mounted, "wait"});
  ASSERT_TRUE(probe.waitForLine("(ready)"));
  server.signal(SIGSTOP);
  // A call that the server has taken up already would not even end with the process.
  siginfo_t stopped{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(server.id()), &stopped, WSTOPPED), 0);
  probe.signal(SIGSEGV);
  EXPECT_EQ(signalOf(probe), SIGKILL);
  server.signal(SIGCONT);
  EXPECT_EQ(std::system(("fusermount3 -u " + mounted).c_str()), 0);
}

TEST_F(CrashWriterTest, ACallThatLeadsNowhereNamesItsCaller) {
  EXPECT_EQ(signalAfter("call-nothing"), SIGSEGV);
  EXPECT_THAT(log(), ContainsRegex("\n0    \\(no module\\) +0x0+\n1    CrashProbe "));
}

TEST_F(CrashWriterTest, AnUncaughtExceptionLeavesALogOfTheAbort) {
  EXPECT_EQ(signalAfter("terminate"), SIGABRT);
  EXPECT_THAT(log(), ContainsRegex("libstdc\\+\\+\\.so\\.6 +0x"));
}

TEST_F(CrashWriterTest, ASignalThatSomebodySentNamesTheSender) {
  for (const int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS}) {
    ChildProgram probe({kProbe, folder, "wait"});
    ASSERT_TRUE(probe.waitForLine("(ready)"));
    probe.signal(number);
    EXPECT_EQ(signalOf(probe), number);
    EXPECT_THAT(log(), HasSubstr("(" + std::to_string(number) + "), SI_USER (0)\n"));
    EXPECT_THAT(log(), HasSubstr("process " + std::to_string(::getpid()) + ", user "));
    fs::remove_all(folder);
    sandbox.makeDirectory("reports");
  }
}

TEST_F(CrashWriterTest, AProcessThatNobodyMayLookIntoLeavesAWholeLogForAnOrdinaryUser) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  ::setenv("UNDUMPABLE", "1", 1);
  fs::permissions(folder, fs::perms::all);
  ChildProgram probe({kProbe, folder, "null"}, Sandbox::kOtherUserId);
  EXPECT_EQ(signalOf(probe), SIGSEGV);
  EXPECT_GE(framesOf(log()), 3U);
  EXPECT_THAT(log(), ContainsRegex("libc\\.so\\.6  [0-9a-f]{40}\n"));
}

TEST_F(CrashWriterTest, ASignalThatSomebodyHandlesIsLeftToThem) {
  ::setenv("TAKE_ABORT", "1", 1);
  ChildProgram probe({kProbe, folder, "abort"});
  const auto status = probe.waitForEnd();
  ASSERT_TRUE(status && WIFEXITED(*status));
  EXPECT_EQ(WEXITSTATUS(*status), 3);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CrashWriterTest, AForkedChildThatCrashesLeavesNoLog) {
  ChildProgram probe({kProbe, folder, "child"});
  const auto status = probe.waitForEnd();
  ASSERT_TRUE(status && WIFEXITED(*status));
  EXPECT_EQ(WEXITSTATUS(*status), 1);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CrashWriterTest, AnUnwritableFolderMeansNoLogAndTheSameDeath) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  ChildProgram probe({kProbe, folder, "null"}, Sandbox::kOtherUserId);
  EXPECT_EQ(signalOf(probe), SIGSEGV);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CrashWriterTest, AMissingFolderMeansNoLogAndTheSameDeath) {
  ChildProgram probe({kProbe, sandbox.path("missing"), "null"});
  EXPECT_EQ(signalOf(probe), SIGSEGV);
}

TEST_F(CrashWriterTest, AFullDiskLeavesNothingHalfWritten) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  sandbox.simulateMachine();
  folder = sandbox.mountTmpfs("full", 64 << 10);
  std::ofstream filler(folder + "/filler");
  while (filler << std::string(4096, 'x') << std::flush) {
  }
  EXPECT_EQ(signalAfter("null"), SIGSEGV);
  EXPECT_THAT(names(), ElementsAre("filler"));
}

// As many crashes as fit into the second that the name holds.
TEST_F(CrashWriterTest, LogsOfOneSecondDoNotReplaceEachOther) {
  constexpr std::size_t kCrashes = 8;
  for (std::size_t i = 0; i < kCrashes; ++i) signalAfter("null");
  EXPECT_EQ(names().size(), kCrashes);
  EXPECT_THAT(names(), testing::Each(testing::AllOf(testing::StartsWith("Crash Probe_"),
                                                    testing::EndsWith("_host.crash"))));
}

TEST_F(CrashWriterTest, WhatAnEarlierProcessLeftHalfWrittenIsReplaced) {
  ChildProgram probe({kProbe, folder, "wait"});
  ASSERT_TRUE(probe.waitForLine("(ready)"));
  sandbox.makeFile("reports/.crash-" + std::to_string(probe.id()), "half");
  probe.signal(SIGSEGV);
  EXPECT_EQ(signalOf(probe), SIGSEGV);
  EXPECT_THAT(log(), testing::StartsWith("Process: "));
}

TEST_F(CrashWriterTest, ACoreDumpIsMadeAsWithoutAWriter) {
  std::string pattern;
  std::getline(std::ifstream("/proc/sys/kernel/core_pattern") >> std::ws, pattern);
  if (pattern.find('/') != std::string::npos || pattern.starts_with('|')) {
    GTEST_SKIP() << "needs a core pattern of the current folder, not " << pattern;
  }
  fs::current_path(sandbox.makeDirectory("core"));
  const rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
  if (::setrlimit(RLIMIT_CORE, &unlimited) != 0) GTEST_SKIP() << "needs to raise RLIMIT_CORE";
  ChildProgram probe({kProbe, folder, "null"});
  const auto status = probe.waitForEnd();
  ASSERT_TRUE(status && WIFSIGNALED(*status));
  EXPECT_TRUE(WCOREDUMP(*status));
}

}  // namespace
