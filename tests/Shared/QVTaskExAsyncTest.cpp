#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <mutex>
#include <thread>

#include "Shared/QVLog.h"
#include "Shared/QVTaskEx.h"
#include "platform/Exception.h"
#include "platform/MainThread.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

using platform::Data;
using platform::Environment;
using platform::Task;
using test::waitFor;
using testing::HasSubstr;
using testing::Not;
using Words = std::vector<std::string>;

const std::string kProbe = QV_TEST_PROGRAMS "/TaskProbe";

std::string loggedText() {
  QVLog::finishWriting();
  std::string text;
  for (const std::string& path : QVLog::availableLogs()) text += test::readFile(path);
  return text;
}

// Notes what it is told; all functions may be called from any thread.
class Reader {
 public:
  explicit Reader(std::atomic<int>* living = nullptr) : living_(living) {
    if (living_ != nullptr) ++*living_;
  }
  virtual ~Reader() {
    if (living_ != nullptr) --*living_;
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  virtual void take(const Data& data, QVTaskEx& task, const std::any& object) {
    const std::lock_guard lock(mutex_);
    text_.append(reinterpret_cast<const char*>(data.data()), data.size());
    objects_ += object.has_value() ? std::any_cast<std::string>(object) : "-";
    onMainThread_ = onMainThread_ || platform::main_thread::isCurrent();
    instance_ = &task;
    if (data.empty()) ++ends_;
    ++calls_;
  }
  void takeTwo(const Data& data, QVTaskEx& task) { take(data, task, {}); }
  void raise(const Data&, QVTaskEx&, const std::any&) {
    throw platform::Exception("NSRangeException", "index 5 beyond bounds");
  }

  std::string text() const { return locked(text_); }
  std::string objects() const { return locked(objects_); }
  int calls() const { return locked(calls_); }
  int ends() const { return locked(ends_); }
  bool wasOnMainThread() const { return locked(onMainThread_); }
  const QVTaskEx* instance() const { return locked(instance_); }

 private:
  template <class T>
  T locked(const T& value) const {
    const std::lock_guard lock(mutex_);
    return value;
  }

  std::atomic<int>* const living_;
  mutable std::mutex mutex_;  // guards everything below
  std::string text_;
  std::string objects_;
  int calls_ = 0;
  int ends_ = 0;
  bool onMainThread_ = false;
  const QVTaskEx* instance_ = nullptr;
};

// Ends the run with the first chunk.
class QuittingReader : public Reader {
 public:
  void take(const Data& data, QVTaskEx& task, const std::any& object) override {
    Reader::take(data, task, object);
    task.terminateAsyncTask();
  }
};

// Is slower than any program.
class SlowReader : public Reader {
 public:
  void take(const Data& data, QVTaskEx& task, const std::any& object) override {
    Reader::take(data, task, object);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
};

// An ordinary user with a home and a log of her own.
class QVTaskExAsyncTest : public testing::Test {
 protected:
  void SetUp() override {
    if (test::Sandbox::canSimulateMachine()) {
      sandbox.simulateMachine();
      sandbox.becomeUser(test::Sandbox::kConsoleUser);
    }
    QVLog::createNewLog("TaskTest");
    QVLog::finishWriting();
    childrenBefore_ = test::children();
    threadsBefore_ = test::threads();
    descriptorsBefore_ = test::openDescriptors();
  }

  void start(Words arguments, std::any object = {}) {
    instance->asyncDataFromTask(kProbe, std::move(arguments), reader, &Reader::take,
                                std::move(object));
  }
  // The instance has let go of the run; its thread, its program and its pipes are gone.
  bool allEnded() const {
    return waitFor([&] {
      return instance->theTask() == nullptr && test::threads() == threadsBefore_ &&
             test::children() == childrenBefore_ && test::openDescriptors() == descriptorsBefore_;
    });
  }
  std::string file(const std::string& name) const { return sandbox.home() + "/" + name; }
  void makeFile(const std::string& name) const { std::ofstream(file(name)).flush(); }

  test::Sandbox sandbox;
  const std::shared_ptr<QVTaskEx> instance = QVTaskEx::create();
  std::shared_ptr<Reader> reader = std::make_shared<Reader>();

 private:
  std::size_t childrenBefore_ = 0;
  std::size_t threadsBefore_ = 0;
  std::size_t descriptorsBefore_ = 0;
};

TEST_F(QVTaskExAsyncTest, OutputIsDeliveredAndOneEmptyChunkEndsIt) {
  start({"output", "3000000"});
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->text().size(), 3000000U);
  EXPECT_EQ(reader->text()[2999999], static_cast<char>(2999999 % 251));
  EXPECT_GT(reader->calls(), 2);
  EXPECT_EQ(reader->ends(), 1);
  EXPECT_EQ(reader->instance(), instance.get());
  EXPECT_FALSE(reader->wasOnMainThread());
}

TEST_F(QVTaskExAsyncTest, ChunksArriveWhileTheProgramGoesOn) {
  start({"ignore", file("go")});
  EXPECT_TRUE(waitFor([&] { return reader->text() == "ready"; }));
  EXPECT_TRUE(instance->theTask()->isRunning());
  EXPECT_EQ(reader->ends(), 0);
  makeFile("go");
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->ends(), 1);
}

TEST_F(QVTaskExAsyncTest, ASlowDelegateMissesNothing) {
  reader = std::make_shared<SlowReader>();
  start({"output", "3000000"});
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->text().size(), 3000000U);
  EXPECT_EQ(reader->ends(), 1);
}

TEST_F(QVTaskExAsyncTest, AProgramWithoutOutputGivesExactlyOneCall) {
  start({"exit", "0"});
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->calls(), 1);
  EXPECT_EQ(reader->ends(), 1);
}

TEST_F(QVTaskExAsyncTest, ErrorsAreNeverDelivered) {
  start({"error-first", "100000", "3"});
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->text(), std::string("\0\1\2", 3));
}

TEST_F(QVTaskExAsyncTest, ErrorsAreNotPrintedEither) {
  testing::internal::CaptureStderr();
  start({"echo-error", "why"});
  EXPECT_TRUE(waitFor([&] { return reader->ends() == 1; }));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(reader->calls(), 1);
}

TEST_F(QVTaskExAsyncTest, TheObjectComesWithEachChunk) {
  start({"echo", "text"}, std::string("o"));
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->objects(), std::string(static_cast<std::size_t>(reader->calls()), 'o'));

  start({"exit", "0"});
  EXPECT_TRUE(allEnded());
  EXPECT_THAT(reader->objects(), testing::EndsWith("-"));
}

TEST_F(QVTaskExAsyncTest, AShortSelectorServesWithoutAnObject) {
  instance->asyncDataFromTask(kProbe, Words{"echo", "text"}, reader, &Reader::takeTwo, {});
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->text(), "text\n");
  EXPECT_EQ(reader->ends(), 1);
}

TEST_F(QVTaskExAsyncTest, AShortSelectorWithAnObjectIsAnException) {
  instance->asyncDataFromTask(kProbe, Words{"exit", "0"}, reader, &Reader::takeTwo, 5);
  EXPECT_TRUE(waitFor([] {
    return loggedText().find(
               "Exception in -[QVTaskEx launchAsyncTask]. "
               "NSInvalidArgumentException") != std::string::npos;
  }));
  EXPECT_EQ(reader->calls(), 0);
}

TEST_F(QVTaskExAsyncTest, TheEnvironmentIsInheritedOrGiven) {
  start({"environment"});
  EXPECT_TRUE(allEnded());
  EXPECT_THAT(reader->text(), HasSubstr("HOME=" + sandbox.home() + "\n"));

  reader = std::make_shared<Reader>();
  instance->asyncDataFromTask(kProbe, Words{"environment"}, reader, &Reader::take, {},
                              Environment{{"A", "b"}});
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->text(), "A=b\n");
}

TEST_F(QVTaskExAsyncTest, NoArgumentsAreNone) {
  instance->asyncDataFromTask("/bin/echo", std::nullopt, reader, &Reader::take, {});
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->text(), "\n");
}

TEST_F(QVTaskExAsyncTest, ARunWithoutADelegateOrASelectorEndsAllTheSame) {
  instance->asyncDataFromTask<Reader>(kProbe, Words{"output", "100000"}, nullptr, &Reader::take,
                                      {});
  EXPECT_TRUE(allEnded());
  instance->asyncDataFromTask(kProbe, Words{"output", "100000"}, reader,
                              QVTaskEx::Selector<Reader>(nullptr), {});
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->calls(), 0);
}

TEST_F(QVTaskExAsyncTest, WhatIsNotExecutableIsLoggedAndTheDelegateHearsNothingAndStays) {
  instance->asyncDataFromTask("/nonexistent/program", std::nullopt, reader, &Reader::take, {});
  EXPECT_TRUE(waitFor([] {
    return loggedText().find(
               "Unable to launch async task - task does not exist or is not "
               "executable\n") != std::string::npos;
  }));
  EXPECT_EQ(reader->calls(), 0);
  EXPECT_EQ(reader.use_count(), 2);
  EXPECT_NE(instance->theTask(), nullptr);
  instance->terminateAsyncTask();
  EXPECT_EQ(reader.use_count(), 1);
}

TEST_F(QVTaskExAsyncTest, WhatIsNotExecutableIsNotPrinted) {
  const auto task = Task::create();
  task->setLaunchPath("/nonexistent/program");
  instance->setTheTask(task);
  testing::internal::CaptureStdout();
  instance->launchAsyncTask();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(QVTaskExAsyncTest, WithoutATaskNothingIsLaunched) {
  testing::internal::CaptureStdout();
  instance->launchAsyncTask();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Unable to launch async task - no task set\n");
  EXPECT_THAT(loggedText(), HasSubstr("Unable to launch async task - no task set\n"));
}

TEST_F(QVTaskExAsyncTest, AFailedLaunchIsReportedAsAnException) {
  instance->asyncDataFromTask("/tmp", std::nullopt, reader, &Reader::take, {});
  EXPECT_TRUE(waitFor([] {
    return loggedText().find(
               "Exception in -[QVTaskEx launchAsyncTask]. "
               "NSInvalidArgumentException - Permission denied.\n") != std::string::npos;
  }));
  EXPECT_EQ(reader->calls(), 0);
}

TEST_F(QVTaskExAsyncTest, TheDelegatesExceptionEndsTheThreadWithoutAFinalChunk) {
  instance->asyncDataFromTask(kProbe, Words{"exit", "0"}, reader, &Reader::raise, {});
  EXPECT_TRUE(waitFor([] {
    return loggedText().find(
               "Exception in -[QVTaskEx launchAsyncTask]. NSRangeException - index "
               "5 beyond bounds.\n") != std::string::npos;
  }));
  EXPECT_EQ(reader->calls(), 0);
}

TEST_F(QVTaskExAsyncTest, DelegateAndInstanceAreKeptWhileTheRunLastsAndLetGoAfterIt) {
  std::atomic<int> living = 0;
  auto mine = QVTaskEx::create();
  mine->asyncDataFromTask(kProbe, Words{"ignore", file("go")}, std::make_shared<Reader>(&living),
                          &Reader::take, {});
  const std::weak_ptr<QVTaskEx> watched = mine;
  mine.reset();
  EXPECT_FALSE(waitFor([&] { return living == 0; }, std::chrono::milliseconds(50)));
  EXPECT_FALSE(watched.expired());
  makeFile("go");
  EXPECT_TRUE(waitFor([&] { return living == 0 && watched.expired(); }));
}

TEST_F(QVTaskExAsyncTest, OutputWithoutEndIsTerminatedFromOutside) {
  instance->asyncDataFromTask("/usr/bin/yes", std::nullopt, reader, &Reader::take, {});
  EXPECT_TRUE(waitFor([&] { return reader->calls() > 3; }));
  auto task = instance->theTask();
  instance->terminateAsyncTask();
  EXPECT_EQ(instance->theTask(), nullptr);
  task->waitUntilExit();
  task.reset();
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->ends(), 0);
  EXPECT_EQ(reader.use_count(), 1);
  EXPECT_THAT(loggedText(), Not(HasSubstr("Exception")));
}

TEST_F(QVTaskExAsyncTest, AQuietProgramIsTerminatedFromOutside) {
  start({"wait"});
  EXPECT_TRUE(waitFor([&] { return reader->text() == "ready"; }));
  instance->terminateAsyncTask();
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->calls(), 1);
}

TEST_F(QVTaskExAsyncTest, ADelegateMayEndTheRunFromInside) {
  reader = std::make_shared<QuittingReader>();
  instance->asyncDataFromTask("/usr/bin/yes", std::nullopt, reader, &Reader::take, {});
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->calls(), 1);
  EXPECT_EQ(reader.use_count(), 1);
  EXPECT_THAT(loggedText(), Not(HasSubstr("Exception")));
}

TEST_F(QVTaskExAsyncTest, ARunMayBeEndedAtAnyMomentOfItsStart) {
  for (int i = 0; i < 100; ++i) {
    start({"wait"});
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(20 * i);
    while (std::chrono::steady_clock::now() < end) {
    }
    instance->terminateAsyncTask();
  }
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader.use_count(), 1);
}

TEST_F(QVTaskExAsyncTest, ASecondRunTakesOverTheFirstOnesOutput) {
  start({"ignore", file("go")});
  EXPECT_TRUE(waitFor([&] { return reader->text() == "ready"; }));
  const auto second = std::make_shared<Reader>();
  instance->asyncDataFromTask(kProbe, Words{"wait"}, second, &Reader::take, {});
  EXPECT_EQ(reader.use_count(), 1);
  EXPECT_TRUE(waitFor([&] { return second->text() == "ready"; }));
  auto secondTask = instance->theTask();
  makeFile("go");
  // The first one's end is told to the new delegate and ends the run that is going on.
  secondTask->waitUntilExit();
  EXPECT_EQ(secondTask->terminationStatus(), SIGTERM);
  secondTask.reset();
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(second->ends(), 1);
  EXPECT_EQ(reader->ends(), 0);
}

TEST_F(QVTaskExAsyncTest, AnEnvelopeWithoutBytesIsAnEnd) {
  const auto task = Task::create();
  instance->setTheTask(task);
  instance->asyncTaskReturnData({.name = QVTaskEx::kAsyncTaskDataNotification, .userInfo = {}});
  EXPECT_EQ(instance->theTask(), nullptr);
}

TEST_F(QVTaskExAsyncTest, ManyRunsLeaveNothingBehind) {
  std::vector<std::shared_ptr<QVTaskEx>> instances;
  constexpr int kRuns = 1000;
  constexpr int kAtOnce = 50;
  for (int i = 0; i < kRuns; ++i) {
    instances.push_back(QVTaskEx::create());
    instances.back()->asyncDataFromTask(kProbe, Words{"echo", "x"}, reader, &Reader::take, {});
    EXPECT_TRUE(waitFor([&] { return reader->ends() > i - kAtOnce; }));
  }
  EXPECT_TRUE(waitFor([&] { return reader->ends() == kRuns; }));
  EXPECT_TRUE(allEnded());
  EXPECT_EQ(reader->text().size(), 2U * kRuns);
}

}  // namespace
