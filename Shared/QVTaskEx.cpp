#include "Shared/QVTaskEx.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "Shared/QVLog.h"
#include "Shared/TaskOutput.h"
#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/DetachedThread.h"
#include "platform/Exception.h"
#include "platform/Format.h"
#include "platform/MainThread.h"
#include "platform/Workspace.h"

namespace {

using platform::Data;
using platform::Task;
using Path = std::optional<std::string>;
using Arguments = std::optional<QVTaskEx::Arguments>;

constexpr std::string_view kNotExecutable = "Error: %@ is not executable";
constexpr std::string_view kException = "Exception running task %@: %@";

// Longer than any machine stays up, and far from what a clock cannot add.
constexpr double kLongestTimeout = 1e9;

bool isRunnable(const Path& path) {
  return path && Task::canLaunch(*path) && !platform::workspace::isFilePackage(*path);
}

std::shared_ptr<Task> silentTask(const std::string& path, const Arguments& arguments) {
  auto task = Task::create();
  task->setLaunchPath(path);
  if (arguments) task->setArguments(*arguments);
  task->setStandardError(Task::End::nullDevice);
  task->setStandardOutput(Task::End::nullDevice);
  return task;
}

std::optional<std::string> asText(const std::optional<Data>& data, QVTaskEx::Encoding encoding) {
  if (!data) return "";
  return platform::text::decoded(*data, encoding);
}

std::chrono::seconds wholeSeconds(QVTaskEx::Seconds timeout) {
  // Written so that a time-out that is not a number counts as none.
  const double seconds = timeout.count() > 0 ? std::min(timeout.count(), kLongestTimeout) : 0;
  return std::chrono::seconds(static_cast<long>(seconds));
}

}  // namespace

// One timed run of an instance: has the timer started and the instance know the running task.
class QVTaskEx::TimedRun {
 public:
  TimedRun(QVTaskEx& owner, Seconds timeout) : owner_(owner) {
    owner_.setStarting(true);
    owner_.setTheTask(nullptr);
    try {
      platform::detachThread(
          [instance = owner.shared_from_this(), duration = wholeSeconds(timeout)] {
            instance->setupTimeout(duration);
          });
    } catch (...) {
      owner_.setStarting(false);
      throw;
    }
  }
  ~TimedRun() {
    owner_.setTheTask(nullptr);
    owner_.setStarting(false);
  }
  TimedRun(const TimedRun&) = delete;
  TimedRun& operator=(const TimedRun&) = delete;

  Progress progress() {
    return {.created = [this](const auto& task) { owner_.setTheTask(task); },
            .launched = [this] { owner_.setStarting(false); }};
  }

 private:
  QVTaskEx& owner_;
};

// static
std::shared_ptr<QVTaskEx> QVTaskEx::create() {
  return std::make_shared<QVTaskEx>(Made());
}

// static
QVTaskEx::Progress QVTaskEx::storingIn(std::shared_ptr<Task>* taskOut) {
  return {.created =
              [taskOut](const auto& task) {
                if (taskOut != nullptr) *taskOut = task;
              },
          .launched = [] {}};
}

// static
bool QVTaskEx::launchAndWait(const Path& path, const ::Arguments& arguments,
                             const Progress& progress) {
  if (!isRunnable(path)) {
    QVLog::appendLogAndPrint(kNotExecutable, path);
    return false;
  }
  try {
    const auto task = silentTask(*path, arguments);
    progress.created(task);
    task->launch();
    progress.launched();
    task->waitUntilExit();
    return true;
  } catch (const platform::Exception& exception) {
    QVLog::appendLog(kException, path, exception.reason());
    return false;
  }
}

// static
int QVTaskEx::exitStatus(const Path& path, const ::Arguments& arguments, const Progress& progress) {
  if (!isRunnable(path)) {
    platform::console::log(kNotExecutable, path);
    QVLog::appendLog(kNotExecutable, path);
    return -1;
  }
  const auto task = silentTask(*path, arguments);
  progress.created(task);
  task->launch();
  progress.launched();
  task->waitUntilExit();
  return task->terminationStatus();
}

// static
std::optional<Data> QVTaskEx::capturedOutput(
    const Path& path, const ::Arguments& arguments,
    const std::optional<platform::Environment>& environment, bool logOutput,
    const Progress& progress) {
  if (!isRunnable(path)) {
    QVLog::appendLogAndPrint(kNotExecutable, path);
    return std::nullopt;
  }
  try {
    const auto task = Task::create();
    progress.created(task);
    task->setLaunchPath(*path);
    if (arguments) task->setArguments(*arguments);
    if (environment) task->setEnvironment(*environment);
    if (logOutput) task->setStandardOutput(Task::End::pipe);
    task->setStandardInput(Task::End::pipe);
    task->setStandardError(Task::End::pipe);
    task->launch();
    progress.launched();
    const auto outputPipe = task->standardOutputPipe();
    const auto errorPipe = task->standardErrorPipe();
    TaskOutput output = readToEnd(outputPipe.get(), *errorPipe);
    // Whoever keeps the task does not keep them.
    if (outputPipe) outputPipe->closeReadingEnd();
    errorPipe->closeReadingEnd();
    return std::move(output).result();
  } catch (const platform::Exception& exception) {
    platform::console::log(kException, path, exception.reason());
    return std::nullopt;
  }
}

// static
bool QVTaskEx::runTask(const Path& path, const ::Arguments& arguments) {
  return runTask(path, arguments, nullptr);
}

// static
bool QVTaskEx::runTask(const Path& path, const ::Arguments& arguments,
                       std::shared_ptr<Task>* taskOut) {
  return launchAndWait(path, arguments, storingIn(taskOut));
}

// static
void QVTaskEx::runTask(const Path& path, const ::Arguments& arguments, Seconds timeout) {
  create()->timedRunTask(path, arguments, timeout);
}

// static
void QVTaskEx::runTaskAndReturn(const Path& path, const ::Arguments& arguments) {
  if (!isRunnable(path)) {
    const std::string message = platform::formatted(kNotExecutable, path);
    platform::console::writeLine(message);
    // The message is the format, once more.
    return QVLog::appendLog(message);
  }
  silentTask(*path, arguments)->launch();
}

// static
int QVTaskEx::terminationCodeFromTask(const Path& path, const ::Arguments& arguments) {
  return terminationCodeFromTask(path, arguments, nullptr);
}

// static
int QVTaskEx::terminationCodeFromTask(const Path& path, const ::Arguments& arguments,
                                      std::shared_ptr<Task>* taskOut) {
  return exitStatus(path, arguments, storingIn(taskOut));
}

// static
int QVTaskEx::terminationCodeFromTask(const Path& path, const ::Arguments& arguments,
                                      Seconds timeout) {
  return create()->timedTerminationCodeFromTask(path, arguments, timeout);
}

// static
std::optional<Data> QVTaskEx::dataFromTask(const Path& path, const ::Arguments& arguments,
                                           std::shared_ptr<Task>* taskOut) {
  return dataFromTask(path, arguments, taskOut, std::nullopt);
}

// static
std::optional<Data> QVTaskEx::dataFromTask(
    const Path& path, const ::Arguments& arguments, std::shared_ptr<Task>* taskOut,
    const std::optional<platform::Environment>& environment) {
  return dataFromTask(path, arguments, taskOut, environment, true);
}

// static
std::optional<Data> QVTaskEx::dataFromTask(const Path& path, const ::Arguments& arguments,
                                           std::shared_ptr<Task>* taskOut,
                                           const std::optional<platform::Environment>& environment,
                                           bool logOutput) {
  return capturedOutput(path, arguments, environment, logOutput, storingIn(taskOut));
}

// static
std::optional<Data> QVTaskEx::dataFromTask(const Path& path, const ::Arguments& arguments,
                                           Seconds timeout) {
  return create()->timedDataFromTask(path, arguments, timeout);
}

// static
std::optional<std::string> QVTaskEx::stringFromTask(const Path& path,
                                                    const ::Arguments& arguments) {
  return stringFromTask(path, arguments, nullptr);
}

// static
std::optional<std::string> QVTaskEx::stringFromTask(const Path& path, const ::Arguments& arguments,
                                                    std::shared_ptr<Task>* taskOut) {
  return stringFromTask(path, arguments, Encoding::ascii, taskOut);
}

// static
std::optional<std::string> QVTaskEx::stringFromTask(const Path& path, const ::Arguments& arguments,
                                                    Encoding encoding,
                                                    std::shared_ptr<Task>* taskOut) {
  return asText(dataFromTask(path, arguments, taskOut), encoding);
}

// static
std::optional<std::string> QVTaskEx::stringFromTask(const Path& path, const ::Arguments& arguments,
                                                    Seconds timeout) {
  return stringFromTask(path, arguments, Encoding::ascii, timeout);
}

// static
std::optional<std::string> QVTaskEx::stringFromTask(const Path& path, const ::Arguments& arguments,
                                                    Encoding encoding, Seconds timeout) {
  return asText(dataFromTask(path, arguments, timeout), encoding);
}

void QVTaskEx::timedRunTask(const Path& path, const ::Arguments& arguments, Seconds timeout) {
  TimedRun run(*this, timeout);
  launchAndWait(path, arguments, run.progress());
}

std::optional<Data> QVTaskEx::timedDataFromTask(const Path& path, const ::Arguments& arguments,
                                                Seconds timeout) {
  TimedRun run(*this, timeout);
  return capturedOutput(path, arguments, std::nullopt, true, run.progress());
}

int QVTaskEx::timedTerminationCodeFromTask(const Path& path, const ::Arguments& arguments,
                                           Seconds timeout) {
  TimedRun run(*this, timeout);
  return exitStatus(path, arguments, run.progress());
}

void QVTaskEx::setupTimeout(std::chrono::seconds duration) {
  platform::clock::sleep(duration);
  waitForLaunch();
  platform::main_thread::perform([this] { timeout(); }, platform::main_thread::Wait::untilDone);
}

void QVTaskEx::timeout() {
  const auto task = theTask();
  if (task == nullptr || !task->isRunning()) return;
  platform::console::writeLine("Task timed out. Terminating...");
  QVLog::appendLog("Task %@ timed out. Terminating...", task->launchPath());
  task->terminate();
}

std::shared_ptr<Task> QVTaskEx::theTask() const {
  const std::lock_guard lock(mutex_);
  return theTask_;
}

void QVTaskEx::setTheTask(std::shared_ptr<Task> task) {
  const std::lock_guard lock(mutex_);
  // The previous task is let go after the lock.
  theTask_.swap(task);
}

void QVTaskEx::setStarting(bool starting) {
  const std::lock_guard lock(mutex_);
  starting_ = starting;
  startingChanged_.notify_all();
}

void QVTaskEx::waitForLaunch() {
  std::unique_lock lock(mutex_);
  startingChanged_.wait(lock, [this] { return !starting_; });
}
