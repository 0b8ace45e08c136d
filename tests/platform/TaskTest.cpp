#include "platform/Task.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "platform/Exception.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

using platform::Data;
using platform::Exception;
using platform::Pipe;
using platform::Task;
using test::waitFor;
using testing::AllOf;
using testing::HasSubstr;
using testing::Property;
using testing::StrEq;
using End = Task::End;

constexpr char kProbe[] = QV_TEST_PROGRAMS "/TaskProbe";

std::string textOf(const Data& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

std::string readToEnd(Pipe& pipe) {
  Data data;
  while (pipe.appendAvailableData(data) > 0) {
  }
  return textOf(data);
}

std::shared_ptr<Task> probe(std::vector<std::string> arguments) {
  auto task = Task::create();
  task->setLaunchPath(kProbe);
  task->setArguments(std::move(arguments));
  return task;
}

// Launched with both ends as pipes.
std::shared_ptr<Task> launchedProbe(std::vector<std::string> arguments) {
  auto task = probe(std::move(arguments));
  task->setStandardOutput(End::pipe);
  task->setStandardError(End::pipe);
  task->launch();
  return task;
}

std::string outputOf(std::vector<std::string> arguments) {
  return readToEnd(*launchedProbe(std::move(arguments))->standardOutputPipe());
}

std::string pattern(std::size_t count) {
  std::string text(count, '\0');
  for (std::size_t i = 0; i < count; ++i) text[i] = static_cast<char>(i % 251);
  return text;
}

int statusOf(const std::shared_ptr<Task>& task) {
  task->waitUntilExit();
  return task->terminationStatus();
}

auto invalidArgument(const testing::Matcher<std::string>& reason) {
  return AllOf(Property(&Exception::name, platform::exception_name::kInvalidArgument),
               Property(&Exception::reason, reason));
}

void expectRefused(Task& task, const testing::Matcher<std::string>& reason) {
  EXPECT_THAT([&] { task.launch(); }, testing::Throws<Exception>(invalidArgument(reason)));
  EXPECT_FALSE(task.isRunning());
}

// --- The program's end

TEST(TaskTest, AProgramsExitStatusIsAnswered) {
  const auto task = probe({"exit", "7"});
  task->launch();
  EXPECT_EQ(statusOf(task), 7);
  EXPECT_FALSE(task->isRunning());
}

TEST(TaskTest, AProgramEndedByASignalHasItsNumberAsStatus) {
  const auto killed = probe({"signal", std::to_string(SIGKILL)});
  killed->launch();
  EXPECT_EQ(statusOf(killed), SIGKILL);

  const auto terminated = launchedProbe({"wait"});
  terminated->terminate();
  EXPECT_EQ(statusOf(terminated), SIGTERM);
}

TEST(TaskTest, AStatusThatTheSystemDoesNotKeepIsTold) {
  std::signal(SIGCHLD, SIG_IGN);
  const auto task = probe({"exit", "7"});
  task->launch();
  constexpr int kLostStatus = 255;
  EXPECT_EQ(statusOf(task), kLostStatus);
}

TEST(TaskTest, ATaskThatWasNotLaunchedHasNoState) {
  const auto task = probe({"exit", "0"});
  EXPECT_FALSE(task->isRunning());
  task->terminate();
  task->waitUntilExit();
  EXPECT_THAT([&] { task->terminationStatus(); },
              testing::Throws<Exception>(invalidArgument("the task was not launched")));
}

TEST(TaskTest, ARunningTaskHasNoStatusYet) {
  const auto task = launchedProbe({"wait"});
  EXPECT_TRUE(task->isRunning());
  EXPECT_THAT([&] { task->terminationStatus(); },
              testing::Throws<Exception>(invalidArgument("the task is still running")));
  task->terminate();
  task->waitUntilExit();
}

TEST(TaskTest, ATaskTerminatedBeforeItsLaunchEndsAsSoonAsItIsLaunched) {
  const auto task = probe({"wait"});
  task->setStandardOutput(End::nullDevice);
  task->terminate();
  task->launch();
  EXPECT_EQ(statusOf(task), SIGTERM);
}

TEST(TaskTest, AProgramMayIgnoreTermination) {
  const test::Sandbox sandbox;
  const auto task = launchedProbe({"ignore", sandbox.path("go")});
  EXPECT_EQ(textOf(task->standardOutputPipe()->availableData()), "ready");
  task->terminate();
  EXPECT_TRUE(task->isRunning());
  sandbox.makeFile("go");
  EXPECT_EQ(statusOf(task), 5);
}

TEST(TaskTest, AllWhoWaitLearnOfTheEnd) {
  const auto task = launchedProbe({"wait"});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] { EXPECT_EQ(statusOf(task), SIGTERM); });
    threads.emplace_back([&] { EXPECT_TRUE(waitFor([&] { return !task->isRunning(); })); });
  }
  task->terminate();
  for (std::thread& thread : threads) thread.join();
}

// --- Programs that cannot be started

TEST(TaskTest, AMissingProgramIsRefusedWithTheSystemsReason) {
  const auto task = Task::create();
  task->setLaunchPath("/nonexistent/program");
  expectRefused(*task, StrEq("No such file or directory"));
}

TEST(TaskTest, AMissingInterpreterIsToldFromAMissingProgram) {
  const test::Sandbox sandbox;
  const std::string script = sandbox.makeFile("script", "#!/nonexistent/interpreter\n");
  ASSERT_EQ(::chmod(script.c_str(), 0755), 0);
  const auto task = Task::create();
  task->setLaunchPath(script);
  expectRefused(*task, HasSubstr("interpreter is missing"));
}

TEST(TaskTest, AFolderAFileWithoutPermissionAndNoPathAreRefused) {
  const test::Sandbox sandbox;
  const auto task = Task::create();
  task->setLaunchPath("/tmp");
  expectRefused(*task, StrEq("Permission denied"));
  task->setLaunchPath(sandbox.makeFile("plain", "text"));
  expectRefused(*task, StrEq("Permission denied"));
  task->setLaunchPath("");
  expectRefused(*task, StrEq("No such file or directory"));
}

TEST(TaskTest, AnArgumentOf120KiBArrivesAndALongerOneIsRefused) {
  const std::string argument(120 << 10, 'x');
  EXPECT_EQ(outputOf({"echo", argument}), argument + "\n");
  const auto task = probe({"echo", std::string(128 << 10, 'x')});
  expectRefused(*task, StrEq("Argument list too long"));
}

TEST(TaskTest, ANullCharacterIsRefusedRatherThanCutAt) {
  using std::string_literals::operator""s;
  expectRefused(*probe({"echo", "a\0b"s}), HasSubstr("null character"));
  const auto task = probe({"environment"});
  task->setEnvironment({{"A", "b\0c"s}});
  expectRefused(*task, HasSubstr("null character"));
}

TEST(TaskTest, ATaskIsLaunchedOnce) {
  const auto task = probe({"exit", "0"});
  task->launch();
  EXPECT_THAT([&] { task->launch(); },
              testing::Throws<Exception>(invalidArgument("the task was launched before")));
  EXPECT_EQ(statusOf(task), 0);
}

TEST(TaskTest, ATaskThatCouldNotBeLaunchedMayBeTriedAgain) {
  const auto task = probe({"exit", "3"});
  task->setStandardOutput(End::pipe);
  task->setLaunchPath("/nonexistent/program");
  expectRefused(*task, testing::_);
  EXPECT_EQ(task->standardOutputPipe(), nullptr);
  task->setLaunchPath(kProbe);
  task->launch();
  EXPECT_EQ(statusOf(task), 3);
}

TEST(TaskTest, LaunchingWithoutFreeDescriptorsIsRefusedAndLosesNothing) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer's own checks need free descriptors";
#endif
  rlimit limit = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const std::size_t before = test::openDescriptors();
  const rlimit tight = {3, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
  const auto task = probe({"echo", "text"});
  task->setStandardOutput(End::pipe);
  task->setStandardError(End::pipe);
  expectRefused(*task, StrEq("Too many open files"));
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(test::openDescriptors(), before);
  EXPECT_EQ(outputOf({"echo", "text"}), "text\n");
}

// --- What the program finds

TEST(TaskTest, TheEnvironmentIsInheritedUnlessOneIsGiven) {
  ::setenv("QV_TASK_TEST", "inherited", 1);
  EXPECT_THAT(outputOf({"environment"}), HasSubstr("QV_TASK_TEST=inherited\n"));

  const auto task = probe({"environment"});
  task->setEnvironment({{"ONE", "1"}, {"EMPTY", ""}});
  task->setStandardOutput(End::pipe);
  task->launch();
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), "EMPTY=\nONE=1\n");
}

TEST(TaskTest, AnEmptyEnvironmentIsEmpty) {
  const auto task = probe({"environment"});
  task->setEnvironment({});
  task->setStandardOutput(End::pipe);
  task->launch();
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), "");
  EXPECT_EQ(statusOf(task), 0);
}

TEST(TaskTest, TheProgramHasNoDescriptorsButItsStandardEnds) {
  ASSERT_GE(::open("/dev/null", O_RDONLY), 0);
  ASSERT_EQ(::fcntl(STDIN_FILENO, F_DUPFD, 700), 700);
  EXPECT_EQ(outputOf({"descriptors"}), "0\n1\n2\n");
}

TEST(TaskTest, ClosedStandardEndsOfOursAreTheProgramsNullDevice) {
  const pid_t child = ::fork();
  if (child == 0) {
    for (int end = 0; end < 3; ++end) ::close(end);
    const bool hasEnds = outputOf({"descriptors"}) == "0\n1\n2\n";
    const bool inputEnded = outputOf({"input"}) == "ended\n";
    ::_exit(hasEnds && inputEnded ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(TaskTest, SignalsAreAtTheirDefaultsAndNoneIsBlocked) {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGHUP, SIG_IGN);
  sigset_t all;
  ::sigfillset(&all);
  ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, &all, nullptr), 0);
  EXPECT_EQ(outputOf({"signals"}), "");
}

TEST(TaskTest, AnInputThatIsAPipeIsOpenAndEmpty) {
  const auto task = probe({"input"});
  task->setStandardInput(End::pipe);
  task->setStandardOutput(End::pipe);
  task->launch();
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), "open\n");
}

TEST(TaskTest, AnInputFromTheNullDeviceHasEnded) {
  const auto task = probe({"input"});
  task->setStandardInput(End::nullDevice);
  task->setStandardOutput(End::pipe);
  task->launch();
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), "ended\n");
}

TEST(TaskTest, EndsThatAreNoPipesHaveNone) {
  const auto task = probe({"echo-error", "text"});
  task->setStandardError(End::nullDevice);
  task->launch();
  EXPECT_EQ(task->standardOutputPipe(), nullptr);
  EXPECT_EQ(task->standardErrorPipe(), nullptr);
  EXPECT_EQ(statusOf(task), 0);
}

// --- Pipes

TEST(TaskTest, OutputArrivesWholeAndUnchanged) {
  for (const std::size_t count : {0UL, 1UL, 65536UL, 65537UL, 3000001UL}) {
    EXPECT_EQ(outputOf({"output", std::to_string(count)}), pattern(count)) << count;
  }
}

TEST(TaskTest, TheEndOfTheStreamIsAnsweredAgainAndAgain) {
  const auto task = launchedProbe({"exit", "0"});
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(task->standardOutputPipe()->availableData().empty());
}

TEST(TaskTest, AFullErrorPipeDoesNotKeepTheOutputFromArriving) {
  const auto task = launchedProbe({"error-first", "3000000", "10"});
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), pattern(10));
  EXPECT_EQ(readToEnd(*task->standardErrorPipe()), pattern(3000000));
}

TEST(TaskTest, AFullOutputPipeDoesNotKeepTheErrorsFromArriving) {
  const auto task = launchedProbe({"output-first", "3000000", "10"});
  EXPECT_EQ(readToEnd(*task->standardErrorPipe()), pattern(10));
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), pattern(3000000));
}

TEST(TaskTest, BothPipesMayBeReadAtTheSameTime) {
  const auto task = launchedProbe({"error-first", "3000000", "3000000"});
  std::string error;
  std::thread other([&] { error = readToEnd(*task->standardErrorPipe()); });
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), pattern(3000000));
  other.join();
  EXPECT_EQ(error, pattern(3000000));
}

TEST(TaskTest, AvailableDataIsWhatArrivedAndNotTheWholeStream) {
  const test::Sandbox sandbox;
  const auto task = launchedProbe({"ignore", sandbox.path("go")});
  EXPECT_EQ(textOf(task->standardOutputPipe()->availableData()), "ready");
  EXPECT_TRUE(task->isRunning());
  sandbox.makeFile("go");
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), "");
}

TEST(TaskTest, AGrandchildThatHasThePipeIsWaitedFor) {
  const test::Sandbox sandbox;
  const auto task = launchedProbe({"grandchild", sandbox.path("go")});
  EXPECT_EQ(statusOf(task), 0);
  // Ended as it has, the program can no longer be cut short.
  task->terminate();
  std::thread later([&] { sandbox.makeFile("go"); });
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), "grandchild");
  later.join();
}

TEST(TaskTest, AGrandchildDoesNotKeepARunThatWasCutShort) {
  const test::Sandbox sandbox;
  const auto task = launchedProbe({"grandchild-and-wait", sandbox.path("go")});
  EXPECT_EQ(textOf(task->standardOutputPipe()->availableData()), "ready");
  std::thread later([&] { task->terminate(); });
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), "");
  EXPECT_EQ(readToEnd(*task->standardErrorPipe()), "");
  later.join();
  EXPECT_EQ(statusOf(task), SIGTERM);
  sandbox.makeFile("go");
}

TEST(TaskTest, WhatWasWrittenBeforeARunWasCutShortIsRead) {
  const test::Sandbox sandbox;
  const auto task = launchedProbe({"grandchild-and-wait", sandbox.path("go")});
  EXPECT_FALSE(waitFor([&] { return !task->isRunning(); }, std::chrono::milliseconds(50)));
  task->terminate();
  task->waitUntilExit();
  EXPECT_EQ(readToEnd(*task->standardOutputPipe()), "ready");
  sandbox.makeFile("go");
}

TEST(TaskTest, ClosingAPipeEndsItsReadersWait) {
  const auto task = launchedProbe({"wait"});
  const auto pipe = task->standardErrorPipe();
  std::thread closer([&] { pipe->closeReadingEnd(); });
  EXPECT_TRUE(pipe->availableData().empty());
  closer.join();
  pipe->closeReadingEnd();
  EXPECT_TRUE(pipe->availableData().empty());
  task->terminate();
}

TEST(TaskTest, AProgramThatWritesIntoAClosedPipeIsEndedByTheSystem) {
  const auto task = launchedProbe({"output", "3000000"});
  task->standardOutputPipe()->closeReadingEnd();
  EXPECT_EQ(statusOf(task), SIGPIPE);
}

// --- What stays behind

TEST(TaskTest, AProgramWhoseTaskIsDroppedGoesOnAndIsCollected) {
  const test::Sandbox sandbox;
  const std::size_t before = test::children();
  const std::size_t threadsBefore = test::threads();
  for (const char* name : {"one", "two", "three"}) {
    probe({"wait-for-file", sandbox.path(name)})->launch();
  }
  EXPECT_EQ(test::children(), before + 3);
  sandbox.makeFile("two");
  sandbox.makeFile("one");
  sandbox.makeFile("three");
  EXPECT_TRUE(waitFor([&] { return test::children() == before; }));
  EXPECT_TRUE(waitFor([&] { return test::threads() == threadsBefore; }));
}

TEST(TaskTest, NobodyElsesChildIsCollected) {
  const test::Sandbox sandbox;
  const std::size_t threadsBefore = test::threads();
  const pid_t child = ::fork();
  if (child == 0) ::_exit(9);
  probe({"wait-for-file", sandbox.path("go")})->launch();
  EXPECT_EQ(outputOf({"echo", "text"}), "text\n");
  sandbox.makeFile("go");
  EXPECT_TRUE(waitFor([&] { return test::threads() == threadsBefore; }));
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 9);
}

TEST(TaskTest, RunsLeaveNoDescriptorThreadOrZombieBehind) {
  const std::size_t before = test::openDescriptors();
  const std::size_t threadsBefore = test::threads();
  for (int i = 0; i < 20; ++i) {
    outputOf({"error-first", "100", "100"});
    launchedProbe({"wait"})->terminate();
    EXPECT_ANY_THROW({
      const auto task = Task::create();
      task->setLaunchPath("/nonexistent/program");
      task->setStandardOutput(End::pipe);
      task->setStandardInput(End::pipe);
      task->launch();
    });
  }
  EXPECT_TRUE(waitFor([&] { return test::children() == 0 && test::threads() == threadsBefore; }));
  EXPECT_EQ(test::openDescriptors(), before);
}

// --- What can be launched

TEST(TaskTest, WhatMayBeExecutedCanBeLaunched) {
  const test::Sandbox sandbox;
  EXPECT_TRUE(Task::canLaunch(kProbe));
  EXPECT_TRUE(Task::canLaunch("/tmp"));
  EXPECT_FALSE(Task::canLaunch(sandbox.makeFile("plain")));
  EXPECT_FALSE(Task::canLaunch("/nonexistent/program"));
  EXPECT_FALSE(Task::canLaunch(""));
}

}  // namespace
