#include "Shared/QVTaskEx.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Shared/QVLog.h"
#include "platform/Exception.h"
#include "platform/MainThread.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

using platform::Data;
using platform::Environment;
using platform::Task;
using std::literals::chrono_literals::operator""s;
using test::waitFor;
using testing::AllOf;
using testing::Each;
using testing::EndsWith;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;
using Encoding = QVTaskEx::Encoding;
using Words = std::vector<std::string>;

const std::string kProbe = QV_TEST_PROGRAMS "/TaskProbe";
const std::string kMissing = "/nonexistent/program";
std::shared_ptr<Task>* const kNoTaskOut = nullptr;

std::optional<std::string> textOf(const std::optional<Data>& data) {
  if (!data) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(data->data()), data->size());
}

bool isPattern(const Data& data) {
  constexpr std::size_t kPeriod = 251;
  // What repeats with the period and begins with it is the pattern.
  for (std::size_t i = 0; i < std::min(kPeriod, data.size()); ++i) {
    if (data.data()[i] != static_cast<std::byte>(i)) return false;
  }
  return data.size() <= kPeriod ||
         std::memcmp(data.begin() + kPeriod, data.begin(), data.size() - kPeriod) == 0;
}

std::string loggedText() {
  QVLog::finishWriting();
  std::string text;
  for (const std::string& path : QVLog::availableLogs()) text += test::readFile(path);
  return text;
}

// Runs `work` on a thread of its own while this one, the main thread, serves its loop.
template <class Work>
auto onWorker(Work work) {
  std::atomic<bool> done = false;
  std::optional<decltype(work())> result;
  std::thread worker([&] {
    result = work();
    done = true;
  });
  while (!done) platform::main_thread::pumpOneEvent(0.01s);
  worker.join();
  return *std::move(result);
}

double secondsOf(const std::function<void()>& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// An ordinary user with a home and a log of her own.
class QVTaskExTest : public testing::Test {
 protected:
  void SetUp() override {
    if (test::Sandbox::canSimulateMachine()) {
      sandbox.simulateMachine();
      sandbox.becomeUser(test::Sandbox::kConsoleUser);
    }
    QVLog::createNewLog("TaskTest");
    childrenBefore_ = test::children();
  }

  bool programRuns() const { return test::children() > childrenBefore_; }

  std::string file(const std::string& name) const { return sandbox.home() + "/" + name; }
  void makeFile(const std::string& name) const { std::ofstream(file(name)).flush(); }
  std::string makeProgram(const std::string& name, const std::string& text) const {
    std::filesystem::create_directories(std::filesystem::path(file(name)).parent_path());
    std::ofstream(file(name)) << text;
    std::filesystem::permissions(file(name), std::filesystem::perms::all);
    return file(name);
  }

  test::Sandbox sandbox;

 private:
  std::size_t childrenBefore_ = 0;
};

// --- runTask

TEST_F(QVTaskExTest, RunTaskAnswersTrueWhateverTheExitStatus) {
  EXPECT_TRUE(QVTaskEx::runTask(kProbe, Words{"exit", "0"}));
  EXPECT_TRUE(QVTaskEx::runTask(kProbe, Words{"exit", "3"}));
  EXPECT_TRUE(QVTaskEx::runTask(kProbe, Words{"signal", "9"}));
  EXPECT_TRUE(QVTaskEx::runTask("/bin/true", std::nullopt));
}

TEST_F(QVTaskExTest, RunTaskWaitsForTheEnd) {
  const std::string path = makeProgram("touch.sh", "#!/bin/sh\nsleep 0.05; : >\"$1\"\n");
  EXPECT_TRUE(QVTaskEx::runTask(path, Words{file("made")}));
  EXPECT_TRUE(std::filesystem::exists(file("made")));
}

TEST_F(QVTaskExTest, RunTaskLetsNothingOfTheProgramThrough) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_TRUE(QVTaskEx::runTask(kProbe, Words{"output-first", "10", "10"}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(QVTaskExTest, RunTaskHandsOutItsTask) {
  std::shared_ptr<Task> task;
  EXPECT_TRUE(QVTaskEx::runTask(kProbe, Words{"exit", "3"}, &task));
  ASSERT_NE(task, nullptr);
  EXPECT_EQ(task->launchPath(), kProbe);
  EXPECT_EQ(task->terminationStatus(), 3);
}

TEST_F(QVTaskExTest, TheTaskIsHandedOutBeforeItIsLaunched) {
  std::shared_ptr<Task> task;
  EXPECT_FALSE(QVTaskEx::runTask("/tmp", std::nullopt, &task));
  ASSERT_NE(task, nullptr);
  EXPECT_FALSE(task->isRunning());
}

TEST_F(QVTaskExTest, WhatIsNotRunnableIsLoggedAndPrinted) {
  const std::string plain = file("plain");
  makeFile("plain");
  for (const std::string& path : {kMissing, plain, std::string()}) {
    std::shared_ptr<Task> task;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(QVTaskEx::runTask(path, std::nullopt, &task));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error: " + path + " is not executable\n");
    EXPECT_EQ(task, nullptr);
    EXPECT_THAT(loggedText(), HasSubstr("Error: " + path + " is not executable\n"));
  }
}

TEST_F(QVTaskExTest, NoPathIsNotRunnable) {
  testing::internal::CaptureStdout();
  EXPECT_FALSE(QVTaskEx::runTask(std::nullopt, std::nullopt));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error: (null) is not executable\n");
  EXPECT_EQ(QVTaskEx::dataFromTask(std::nullopt, std::nullopt, kNoTaskOut), std::nullopt);
  EXPECT_EQ(QVTaskEx::terminationCodeFromTask(std::nullopt, std::nullopt), -1);
  QVTaskEx::runTaskAndReturn(std::nullopt, std::nullopt);
}

TEST_F(QVTaskExTest, AnApplicationBundleIsRefusedAlthoughItIsExecutable) {
  const std::string bundle = file("Tool.app");
  std::filesystem::create_directories(bundle);
  EXPECT_FALSE(QVTaskEx::runTask(bundle, std::nullopt));
  EXPECT_EQ(QVTaskEx::terminationCodeFromTask(bundle, std::nullopt), -1);
  EXPECT_EQ(QVTaskEx::dataFromTask(bundle, std::nullopt, kNoTaskOut), std::nullopt);
  EXPECT_THAT(loggedText(), HasSubstr("Error: " + bundle + " is not executable"));
}

TEST_F(QVTaskExTest, AFolderPassesTheTestAndFailsAtLaunch) {
  EXPECT_FALSE(QVTaskEx::runTask("/tmp", std::nullopt));
  EXPECT_THAT(loggedText(), HasSubstr("Exception running task /tmp: Permission denied\n"));

  EXPECT_THROW(QVTaskEx::terminationCodeFromTask("/tmp", std::nullopt), platform::Exception);
  EXPECT_THROW(QVTaskEx::runTaskAndReturn("/tmp", std::nullopt), platform::Exception);

  testing::internal::CaptureStderr();
  EXPECT_EQ(QVTaskEx::dataFromTask("/tmp", std::nullopt, kNoTaskOut), std::nullopt);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Exception running task /tmp: Permission denied\n");
}

TEST_F(QVTaskExTest, AMissingInterpreterIsLogged) {
  const std::string script = makeProgram("script", "#!/nonexistent/interpreter\n");
  EXPECT_FALSE(QVTaskEx::runTask(script, std::nullopt));
  EXPECT_THAT(loggedText(), HasSubstr("Exception running task " + script + ": No such file"));
}

TEST_F(QVTaskExTest, ALongArgumentArrivesAndATooLongOneIsLogged) {
  const std::string argument(120 << 10, 'x');
  EXPECT_THAT(QVTaskEx::stringFromTask(kProbe, Words{"echo", argument}),
              Optional(Eq(argument + "\n")));
  EXPECT_FALSE(QVTaskEx::runTask(kProbe, Words{std::string(200 << 10, 'x')}));
  EXPECT_THAT(loggedText(), HasSubstr(": Argument list too long\n"));
}

// --- runTaskAndReturn

TEST_F(QVTaskExTest, RunTaskAndReturnDoesNotWaitAndLeavesNoZombie) {
  QVTaskEx::runTaskAndReturn(kProbe, Words{"wait-for-file", file("go")});
  EXPECT_TRUE(programRuns());
  makeFile("go");
  EXPECT_TRUE(waitFor([&] { return !programRuns(); }));
}

TEST_F(QVTaskExTest, RunTaskAndReturnTellsTheConsoleAndTheLogWhatIsNotRunnable) {
  testing::internal::CaptureStderr();
  QVTaskEx::runTaskAndReturn("/none/100%d", std::nullopt);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: /none/100%d is not executable\n");
  // The log reads the finished text as a format.
  EXPECT_THAT(loggedText(), HasSubstr("Error: /none/1000 is not executable\n"));
}

// --- terminationCodeFromTask

TEST_F(QVTaskExTest, TheExitStatusIsAnswered) {
  EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kProbe, Words{"exit", "0"}), 0);
  EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kProbe, Words{"exit", "255"}), 255);
}

TEST_F(QVTaskExTest, TheStatusOfAProgramEndedByASignalIsItsNumber) {
  EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kProbe, Words{"signal", "9"}), SIGKILL);
  EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kProbe, Words{"signal", "15"}), SIGTERM);
}

TEST_F(QVTaskExTest, APathWithAPercentSignIsLoggedAsItIs) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(QVTaskEx::terminationCodeFromTask("/none/100%d", std::nullopt), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: /none/100%d is not executable\n");
  EXPECT_THAT(loggedText(), HasSubstr("Error: /none/100%d is not executable\n"));
}

TEST_F(QVTaskExTest, TheStatusOfWhatIsNotRunnableIsMinusOne) {
  std::shared_ptr<Task> task;
  testing::internal::CaptureStderr();
  EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kMissing, std::nullopt, &task), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: " + kMissing + " is not executable\n");
  EXPECT_THAT(loggedText(), HasSubstr("Error: " + kMissing + " is not executable\n"));
  EXPECT_EQ(task, nullptr);
}

// --- dataFromTask

TEST_F(QVTaskExTest, OutputIsCaptured) {
  std::shared_ptr<Task> task;
  EXPECT_THAT(textOf(QVTaskEx::dataFromTask(kProbe, Words{"echo", "a", "b"}, &task)),
              Optional(Eq("a\nb\n")));
  EXPECT_NE(task, nullptr);
}

TEST_F(QVTaskExTest, BothEndsAreClosedAlthoughTheTaskIsKept) {
  const auto readingEnds = [] {
    std::size_t count = 0;
    for (int end = 3; end < 1024; ++end) {
      struct stat status {};
      const bool isPipe = ::fstat(end, &status) == 0 && S_ISFIFO(status.st_mode);
      if (isPipe && (::fcntl(end, F_GETFL) & O_ACCMODE) == O_RDONLY) ++count;
    }
    return count;
  };
  const std::size_t before = readingEnds();
  std::shared_ptr<Task> task;
  EXPECT_TRUE(QVTaskEx::dataFromTask(kProbe, Words{"echo", "a"}, &task));
  ASSERT_NE(task, nullptr);
  EXPECT_EQ(readingEnds(), before);
}

TEST_F(QVTaskExTest, ErrorsStandInForOutputOnlyWhenThereIsNone) {
  EXPECT_THAT(textOf(QVTaskEx::dataFromTask(kProbe, Words{"echo-error", "why"}, kNoTaskOut)),
              Optional(Eq("why")));
  const auto both = QVTaskEx::dataFromTask(kProbe, Words{"error-first", "7", "3"}, kNoTaskOut);
  ASSERT_TRUE(both);
  EXPECT_EQ(both->size(), 3U);
}

TEST_F(QVTaskExTest, NoOutputIsAnEmptyBlock) {
  EXPECT_THAT(QVTaskEx::dataFromTask(kProbe, Words{"exit", "4"}, kNoTaskOut), Optional(IsEmpty()));
}

TEST_F(QVTaskExTest, AGibibyteOfBinaryOutputArrivesWhole) {
  constexpr std::size_t kGibibyte = 1 << 30;
  const auto data =
      QVTaskEx::dataFromTask(kProbe, Words{"output", std::to_string(kGibibyte)}, kNoTaskOut);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->size(), kGibibyte);
  EXPECT_TRUE(isPattern(*data));
}

TEST_F(QVTaskExTest, AFullErrorPipeWhileTheOutputStaysOpenHangsNobody) {
  const auto data =
      QVTaskEx::dataFromTask(kProbe, Words{"error-first", "3000000", "5"}, kNoTaskOut);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->size(), 5U);
  const auto error =
      QVTaskEx::dataFromTask(kProbe, Words{"error-first", "3000000", "0"}, kNoTaskOut);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->size(), 3000000U);
  EXPECT_TRUE(isPattern(*error));
}

TEST_F(QVTaskExTest, CapturingGoesOnWhileAGrandchildHasThePipe) {
  std::thread later([&] {
    EXPECT_TRUE(waitFor([&] { return programRuns(); }));
    makeFile("go");
  });
  EXPECT_THAT(textOf(QVTaskEx::dataFromTask(kProbe, Words{"grandchild", file("go")}, kNoTaskOut)),
              Optional(Eq("grandchild")));
  later.join();
}

TEST_F(QVTaskExTest, TheProgramsInputIsOpenAndEmpty) {
  EXPECT_THAT(QVTaskEx::stringFromTask(kProbe, Words{"input"}), Optional(Eq("open\n")));
}

TEST_F(QVTaskExTest, TheEnvironmentIsInheritedGivenOrEmpty) {
  const Words words = {"environment"};
  EXPECT_THAT(textOf(QVTaskEx::dataFromTask(kProbe, words, kNoTaskOut)),
              Optional(HasSubstr("HOME=" + sandbox.home() + "\n")));
  EXPECT_THAT(textOf(QVTaskEx::dataFromTask(kProbe, words, kNoTaskOut, Environment{{"A", "b"}})),
              Optional(Eq("A=b\n")));
  EXPECT_THAT(textOf(QVTaskEx::dataFromTask(kProbe, words, kNoTaskOut, Environment{})),
              Optional(Eq("")));
}

TEST_F(QVTaskExTest, WithoutLogOutputTheProgramWritesToOurOutputAndErrorsAreCaptured) {
  testing::internal::CaptureStdout();
  const auto data = QVTaskEx::dataFromTask(kProbe, Words{"output-first", "3", "2"}, kNoTaskOut,
                                           std::nullopt, false);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->size(), 2U);
  std::shared_ptr<Task> task;
  EXPECT_THAT(QVTaskEx::dataFromTask(kProbe, Words{"echo", "x"}, &task, std::nullopt, false),
              Optional(IsEmpty()));
  task->waitUntilExit();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("\0\1\2x\n", 5));
}

TEST_F(QVTaskExTest, CapturingWhatIsNotRunnableIsLoggedAndPrinted) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(QVTaskEx::dataFromTask(kMissing, std::nullopt, kNoTaskOut), std::nullopt);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error: " + kMissing + " is not executable\n");
  EXPECT_THAT(loggedText(), HasSubstr("Error: " + kMissing + " is not executable\n"));
}

// --- stringFromTask

TEST_F(QVTaskExTest, TextIsAsciiUnlessAnEncodingIsGiven) {
  const Words words = {"echo", "caf\u00e9"};
  EXPECT_EQ(QVTaskEx::stringFromTask(kProbe, words), std::nullopt);
  EXPECT_EQ(QVTaskEx::stringFromTask(kProbe, words, kNoTaskOut), std::nullopt);
  EXPECT_THAT(QVTaskEx::stringFromTask(kProbe, words, Encoding::utf8, kNoTaskOut),
              Optional(Eq("caf\u00e9\n")));
  EXPECT_EQ(QVTaskEx::stringFromTask(kProbe, Words{"echo", "\xff"}, Encoding::utf8, kNoTaskOut),
            std::nullopt);
  EXPECT_EQ(QVTaskEx::stringFromTask(kProbe, words, 100.0s), std::nullopt);
  std::shared_ptr<Task> task;
  EXPECT_THAT(QVTaskEx::stringFromTask(kProbe, Words{"echo", "plain"}, &task),
              Optional(Eq("plain\n")));
  EXPECT_NE(task, nullptr);
}

TEST_F(QVTaskExTest, NoDataAreAnEmptyText) {
  EXPECT_THAT(QVTaskEx::stringFromTask(kMissing, std::nullopt), Optional(Eq("")));
  EXPECT_THAT(QVTaskEx::stringFromTask(kMissing, std::nullopt, 5.0s), Optional(Eq("")));
  EXPECT_THAT(QVTaskEx::stringFromTask(kProbe, Words{"exit", "0"}), Optional(Eq("")));
}

// --- Time-outs

TEST_F(QVTaskExTest, AProgramThatIsFastEnoughIsNotTouched) {
  EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kProbe, Words{"exit", "3"}, 100.0s), 3);
  EXPECT_THAT(textOf(QVTaskEx::dataFromTask(kProbe, Words{"echo", "a"}, 100.0s)),
              Optional(Eq("a\n")));
  EXPECT_THAT(QVTaskEx::stringFromTask(kProbe, Words{"echo", "a"}, 100.0s), Optional(Eq("a\n")));
  EXPECT_THAT(QVTaskEx::stringFromTask(kProbe, Words{"echo", "\u00e9"}, Encoding::utf8, 100.0s),
              Optional(Eq("\u00e9\n")));
  QVTaskEx::runTask(kProbe, Words{"exit", "0"}, 100.0s);
  EXPECT_THAT(loggedText(), Not(HasSubstr("timed out")));
}

TEST_F(QVTaskExTest, ATimeoutOfLessThanASecondEndsTheProgramAtOnceEvenBeforeItsLaunch) {
  const double seconds = secondsOf([&] {
    for (const double timeout : {0.0, 0.5, 0.999, -3.0, std::nan("")}) {
      EXPECT_EQ(onWorker([&] {
                  return QVTaskEx::terminationCodeFromTask(kProbe, Words{"wait"},
                                                           QVTaskEx::Seconds(timeout));
                }),
                SIGTERM)
          << timeout;
    }
  });
  EXPECT_LT(seconds, 0.9);
}

TEST_F(QVTaskExTest, ATimeoutIsToldToTheConsoleAndTheLog) {
  testing::internal::CaptureStderr();
  EXPECT_TRUE(onWorker([] {
    QVTaskEx::runTask(kProbe, Words{"wait"}, 0.5s);
    return true;
  }));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Task timed out. Terminating...\n");
  EXPECT_THAT(loggedText(), HasSubstr("Task " + kProbe + " timed out. Terminating...\n"));
}

TEST_F(QVTaskExTest, TheFractionOfATimeoutIsDropped) {
  const double seconds = secondsOf([] {
    onWorker([] { return QVTaskEx::terminationCodeFromTask(kProbe, Words{"wait"}, 1.9s); });
  });
  EXPECT_GE(seconds, 1.0);
  EXPECT_LT(seconds, 1.9);
}

TEST_F(QVTaskExTest, CapturingUnderATimeoutAnswersWhatWasWrittenByThen) {
  EXPECT_THAT(onWorker([&] {
                return textOf(
                    QVTaskEx::dataFromTask(kProbe, Words{"grandchild-and-wait", file("go")}, 1.0s));
              }),
              Optional(Eq("ready")));
  makeFile("go");
}

TEST_F(QVTaskExTest, AProgramThatIgnoresTerminationIsWaitedFor) {
  std::thread later([&] {
    EXPECT_TRUE(waitFor([&] { return programRuns(); }));
    EXPECT_FALSE(waitFor([&] { return !programRuns(); }, std::chrono::milliseconds(1200)));
    makeFile("go");
  });
  EXPECT_EQ(onWorker([&] {
              return QVTaskEx::terminationCodeFromTask(kProbe, Words{"ignore", file("go")}, 1.0s);
            }),
            5);
  later.join();
}

TEST_F(QVTaskExTest, ATimedRunOnTheMainThreadIsNotCutShort) {
  std::thread later([&] {
    EXPECT_FALSE(waitFor([] { return false; }, std::chrono::milliseconds(150)));
    makeFile("go");
  });
  EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kProbe, Words{"wait-for-file", file("go")}, 0.0s), 0);
  later.join();
  platform::main_thread::pumpOneEvent(1.0s);
  EXPECT_THAT(loggedText(), Not(HasSubstr("timed out")));
}

TEST_F(QVTaskExTest, AnInstanceKnowsItsTaskWhileItRuns) {
  const auto instance = QVTaskEx::create();
  EXPECT_EQ(instance->theTask(), nullptr);
  std::thread watcher([&] {
    EXPECT_TRUE(waitFor([&] { return instance->theTask() != nullptr; }));
    EXPECT_TRUE(waitFor([&] { return instance->theTask()->isRunning(); }));
    makeFile("go");
  });
  instance->timedRunTask(kProbe, Words{"wait-for-file", file("go")}, 100.0s);
  watcher.join();
  EXPECT_EQ(instance->theTask(), nullptr);
}

TEST_F(QVTaskExTest, TheInstancesRunsAnswerWhatTheirProgramsDo) {
  const auto instance = QVTaskEx::create();
  EXPECT_EQ(instance->timedTerminationCodeFromTask(kProbe, Words{"exit", "6"}, 100.0s), 6);
  EXPECT_THAT(textOf(instance->timedDataFromTask(kProbe, Words{"echo", "a"}, 100.0s)),
              Optional(Eq("a\n")));
  EXPECT_EQ(instance->timedTerminationCodeFromTask(kMissing, std::nullopt, 100.0s), -1);
  EXPECT_EQ(instance->timedDataFromTask(kMissing, std::nullopt, 100.0s), std::nullopt);
}

TEST_F(QVTaskExTest, AnInstanceUsedAgainCanBeEndedByItsFirstTimer) {
  const auto instance = QVTaskEx::create();
  instance->timedRunTask(kProbe, Words{"exit", "0"}, 1.0s);
  const double seconds = secondsOf([&] {
    EXPECT_EQ(onWorker([&] {
                return instance->timedTerminationCodeFromTask(kProbe, Words{"wait"}, 100.0s);
              }),
              SIGTERM);
  });
  EXPECT_LT(seconds, 2);
}

TEST_F(QVTaskExTest, AnExceptionEndsATimedRunToo) {
  const auto instance = QVTaskEx::create();
  EXPECT_THROW(instance->timedTerminationCodeFromTask("/tmp", std::nullopt, 0.0s),
               platform::Exception);
  EXPECT_EQ(instance->theTask(), nullptr);
}

TEST_F(QVTaskExTest, SetupTimeoutSleepsAndThenHasTheMainThreadEndTheTask) {
  const auto instance = QVTaskEx::create();
  const auto task = Task::create();
  task->setLaunchPath(kProbe);
  task->setArguments({"wait"});
  task->setStandardOutput(Task::End::nullDevice);
  task->launch();
  instance->setTheTask(task);
  const double seconds = secondsOf([&] {
    onWorker([&] {
      instance->setupTimeout(std::chrono::seconds(1));
      return true;
    });
  });
  EXPECT_GE(seconds, 1);
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), SIGTERM);
}

TEST_F(QVTaskExTest, SetupTimeoutWaitsForTheMainThread) {
  const auto instance = QVTaskEx::create();
  std::atomic<bool> returned = false;
  std::thread timer([&] {
    instance->setupTimeout(std::chrono::seconds(0));
    returned = true;
  });
  EXPECT_FALSE(waitFor([&] { return returned.load(); }, std::chrono::milliseconds(100)));
  while (!returned) platform::main_thread::pumpOneEvent(0.01s);
  timer.join();
}

TEST_F(QVTaskExTest, TimeoutDoesNothingWithoutARunningTask) {
  testing::internal::CaptureStderr();
  const auto instance = QVTaskEx::create();
  instance->timeout();

  const auto task = Task::create();
  task->setLaunchPath("/bin/true");
  instance->setTheTask(task);
  instance->timeout();
  task->launch();
  task->waitUntilExit();
  instance->timeout();
  EXPECT_EQ(task->terminationStatus(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(loggedText(), Not(HasSubstr("timed out")));
}

TEST_F(QVTaskExTest, RunsLeaveNothingBehind) {
  QVLog::finishWriting();
  const std::size_t threadsBefore = test::threads();
  const auto run = [] {
    QVTaskEx::runTask(kProbe, Words{"exit", "0"}, 0.0s);
    QVTaskEx::dataFromTask(kProbe, Words{"error-first", "9", "9"}, kNoTaskOut);
    QVTaskEx::runTaskAndReturn(kProbe, Words{"exit", "0"});
    return QVTaskEx::runTask(kMissing, std::nullopt);
  };
  const auto settled = [&] {
    while (platform::main_thread::pumpOneEvent(0s)) {
    }
    return !programRuns() && test::threads() == threadsBefore;
  };
  onWorker(run);
  EXPECT_TRUE(waitFor(settled));
  const std::size_t descriptors = test::openDescriptors();
  for (int i = 0; i < 10; ++i) onWorker(run);
  EXPECT_TRUE(waitFor(settled));
  EXPECT_EQ(test::openDescriptors(), descriptors);
}

}  // namespace
