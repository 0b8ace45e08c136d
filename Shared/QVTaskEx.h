#pragma once

#include <any>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/Task.h"
#include "platform/Text.h"

// A message with a name and named blocks of bytes.
struct AsyncTaskNotification {
  std::string name;
  std::map<std::string, platform::Data> userInfo;
};

// Runs external programs: with or without waiting, for their exit status, their output as bytes or
// as text, and all of these under a time-out; or asynchronously, their output going to a delegate
// as it arrives.
//
// Conventions of all operations:
// - `path` is the absolute path of the program. It must be runnable: given, executable by the
//   calling user and no file package (an application bundle is refused), or a tool that is missing
//   at that path and for which the platform has an equivalent. A folder that is no package passes
//   this test and fails at launch.
// - `arguments` follow the program's own name; none means that there are none.
// - `taskOut`, when not null, receives the task as soon as it is there, before it is launched.
// - Standard output and error lead to the null device and standard input is inherited, except where
//   the output is what is asked for.
// - Texts are decoded strictly; the default encoding is ASCII, in which any byte above 127 gives
//   none.
// - Class operations may be called from any thread and block it until the program has ended, except
//   where they say otherwise. Only platform::Exception is caught, and only where it is said.
//
// Time-outs. A timer thread sleeps for the whole seconds of `timeout` (the fraction is dropped: 2.9
// waits 2 seconds, 0.5 none) and then has the main thread terminate the program and waits for that;
// the interrupted run ends as any other, its output being what was written by then. A run made on
// the main thread is therefore never cut short, nor one whose program ignores SIGTERM. Time spent
// before the program's launch is no reason to spare it: a timer that is done earlier waits for the
// launch, so that even a time-out of 0 ends a program that would go on. Where no thread can be had
// for the timer or an asynchronous run, platform::Exception is raised and nothing is launched.
class QVTaskEx : public std::enable_shared_from_this<QVTaskEx> {
  struct Made {};

 public:
  using Arguments = std::vector<std::string>;
  using Seconds = std::chrono::duration<double>;
  using Encoding = platform::text::Encoding;

  // Instances are shared: the timer thread keeps its instance until the time-out has passed.
  static std::shared_ptr<QVTaskEx> create();
  explicit QVTaskEx(Made) {}
  QVTaskEx(const QVTaskEx&) = delete;
  QVTaskEx& operator=(const QVTaskEx&) = delete;

  // Runs a program and waits for its end. Answers true when it was launched and has ended, whatever
  // its exit status; false when it is not runnable or could not be launched, both of which are
  // logged.
  static bool runTask(const std::optional<std::string>& path,
                      const std::optional<Arguments>& arguments);
  static bool runTask(const std::optional<std::string>& path,
                      const std::optional<Arguments>& arguments,
                      std::shared_ptr<platform::Task>* taskOut);
  static void runTask(const std::optional<std::string>& path,
                      const std::optional<Arguments>& arguments, Seconds timeout);

  // Launches a program and returns at once; nobody learns how it ended. A program that is not
  // runnable is told to the console and logged. Raises platform::Exception when it cannot be
  // launched.
  static void runTaskAndReturn(const std::optional<std::string>& path,
                               const std::optional<Arguments>& arguments);

  // Runs a program and answers its exit status, or the number of the signal that ended it (15 after
  // a time-out). -1 when it is not runnable, which is told to the console and logged. Raises
  // platform::Exception when it cannot be launched.
  static int terminationCodeFromTask(const std::optional<std::string>& path,
                                     const std::optional<Arguments>& arguments);
  static int terminationCodeFromTask(const std::optional<std::string>& path,
                                     const std::optional<Arguments>& arguments,
                                     std::shared_ptr<platform::Task>* taskOut);
  static int terminationCodeFromTask(const std::optional<std::string>& path,
                                     const std::optional<Arguments>& arguments, Seconds timeout);

  // Runs a program and answers what it wrote to standard output or, when that was nothing, to
  // standard error; an empty block when it wrote nothing, none when it is not runnable (logged) or
  // an exception was raised (told to the console). Returns at the end of the output, which comes
  // when the program and every program that it has left it to have closed it, and does not wait for
  // the program's end. The program's input is a pipe that stays open and empty until then.
  //
  // `environment` is the program's whole environment; none inherits this process's. With
  // `logOutput` false the program writes to this process's own standard output, and only what it
  // writes to standard error can be answered.
  static std::optional<platform::Data> dataFromTask(const std::optional<std::string>& path,
                                                    const std::optional<Arguments>& arguments,
                                                    std::shared_ptr<platform::Task>* taskOut);
  static std::optional<platform::Data> dataFromTask(
      const std::optional<std::string>& path, const std::optional<Arguments>& arguments,
      std::shared_ptr<platform::Task>* taskOut,
      const std::optional<platform::Environment>& environment);
  static std::optional<platform::Data> dataFromTask(
      const std::optional<std::string>& path, const std::optional<Arguments>& arguments,
      std::shared_ptr<platform::Task>* taskOut,
      const std::optional<platform::Environment>& environment, bool logOutput);
  static std::optional<platform::Data> dataFromTask(const std::optional<std::string>& path,
                                                    const std::optional<Arguments>& arguments,
                                                    Seconds timeout);

  // The same as text, UTF-8: "" when there are no data, none when they are not valid in `encoding`.
  static std::optional<std::string> stringFromTask(const std::optional<std::string>& path,
                                                   const std::optional<Arguments>& arguments);
  static std::optional<std::string> stringFromTask(const std::optional<std::string>& path,
                                                   const std::optional<Arguments>& arguments,
                                                   std::shared_ptr<platform::Task>* taskOut);
  static std::optional<std::string> stringFromTask(const std::optional<std::string>& path,
                                                   const std::optional<Arguments>& arguments,
                                                   Encoding encoding,
                                                   std::shared_ptr<platform::Task>* taskOut);
  static std::optional<std::string> stringFromTask(const std::optional<std::string>& path,
                                                   const std::optional<Arguments>& arguments,
                                                   Seconds timeout);
  static std::optional<std::string> stringFromTask(const std::optional<std::string>& path,
                                                   const std::optional<Arguments>& arguments,
                                                   Encoding encoding, Seconds timeout);

  // The timed runs of an instance, one at a time; the class operations of the same arguments make
  // an instance for them. An instance may be used again, but the timer of an earlier run that is
  // still asleep then ends the later one.
  void timedRunTask(const std::optional<std::string>& path,
                    const std::optional<Arguments>& arguments, Seconds timeout);
  std::optional<platform::Data> timedDataFromTask(const std::optional<std::string>& path,
                                                  const std::optional<Arguments>& arguments,
                                                  Seconds timeout);
  int timedTerminationCodeFromTask(const std::optional<std::string>& path,
                                   const std::optional<Arguments>& arguments, Seconds timeout);

  // The body of the timer thread: sleeps, waits for the launch if a timed run has not come to it,
  // and has the main thread do `timeout`, for which it waits. Nothing ends it early.
  void setupTimeout(std::chrono::seconds duration);

  // Terminates the program of the current run, saying so to the console and the log; does nothing
  // when there is none or it has ended. On the main thread.
  void timeout();

  // Asynchronous runs, one at a time an instance.
  static constexpr char kAsyncTaskDataNotification[] = "QVAsyncTaskDataNotification";
  static constexpr char kNotificationDataItem[] = "NSFileHandleNotificationDataItem";

  // The delegate's operation that takes a chunk: the bytes (empty at the end of the output), the
  // instance, and the caller's object, which is empty when none was given.
  template <class Delegate>
  using Selector = void (Delegate::*)(const platform::Data& data, QVTaskEx& task,
                                      const std::any& object);
  // The same where no object is given; a chunk that has one is then refused as an exception.
  template <class Delegate>
  using ShortSelector = void (Delegate::*)(const platform::Data& data, QVTaskEx& task);

  // Starts a program on a thread of its own, returns at once, and hands what it writes to standard
  // output to `selector` of `delegate`, chunk by chunk as it arrives and on that thread, never on
  // the main thread; one empty chunk ends it. Standard error leads to the null device, standard
  // input is inherited. A null delegate or selector hears nothing, and the run goes its way.
  //
  // Nothing is checked here: what is wrong with the program is logged by the thread, and the
  // delegate then hears nothing. Delegate and object are kept until the run has ended. Starting
  // another run before that replaces them: the earlier run's output goes to the new delegate too,
  // and the earlier run's end ends whatever runs by then.
  template <class Delegate>
  void asyncDataFromTask(const std::string& path, const std::optional<Arguments>& arguments,
                         std::shared_ptr<Delegate> delegate,
                         std::type_identity_t<Selector<Delegate>> selector, const std::any& object,
                         const std::optional<platform::Environment>& environment = std::nullopt) {
    Listener listener = {.delegate = delegate, .notify = nullptr, .object = object};
    if (delegate != nullptr && selector != nullptr) {
      listener.notify = [target = delegate.get(), selector](const auto& data, QVTaskEx& task,
                                                            const std::any& value) {
        (target->*selector)(data, task, value);
      };
    }
    startAsyncTask(path, arguments, std::move(listener), environment);
  }
  template <class Delegate>
  void asyncDataFromTask(const std::string& path, const std::optional<Arguments>& arguments,
                         std::shared_ptr<Delegate> delegate,
                         std::type_identity_t<ShortSelector<Delegate>> selector,
                         const std::any& object,
                         const std::optional<platform::Environment>& environment = std::nullopt) {
    Listener listener = {.delegate = delegate, .notify = nullptr, .object = object};
    if (delegate != nullptr && selector != nullptr) {
      listener.notify = [target = delegate.get(), selector](const auto& data, QVTaskEx& task,
                                                            const std::any& value) {
        refuseObject(value);
        (target->*selector)(data, task);
      };
    }
    startAsyncTask(path, arguments, std::move(listener), environment);
  }

  // The body of that thread: launches the task and delivers its output. Blocks until it ends.
  // Catches and logs platform::Exception, also the delegate's; nothing more is delivered then.
  void launchAsyncTask();

  // Delivers one chunk, the block `kNotificationDataItem` of the notification; an empty or missing
  // one is followed by terminateAsyncTask.
  void asyncTaskReturnData(const AsyncTaskNotification& notification);

  // Ends the asynchronous run and lets go of delegate and object; nothing is delivered any more but
  // a chunk that is on its way. Any thread, at any moment, the delegate's operation included; a
  // program that is just being launched is terminated as soon as it is.
  void terminateAsyncTask();

  // The task of the current run, or null. Any thread.
  std::shared_ptr<platform::Task> theTask() const;
  void setTheTask(std::shared_ptr<platform::Task> task);

 private:
  // What a run tells of its task as it goes along.
  struct Progress {
    std::function<void(const std::shared_ptr<platform::Task>&)> created;
    std::function<void()> launched;
  };
  class TimedRun;

  static Progress storingIn(std::shared_ptr<platform::Task>* taskOut);
  static bool launchAndWait(const std::optional<std::string>& path,
                            const std::optional<Arguments>& arguments, const Progress& progress);
  static int exitStatus(const std::optional<std::string>& path,
                        const std::optional<Arguments>& arguments, const Progress& progress);
  static std::optional<platform::Data> capturedOutput(
      const std::optional<std::string>& path, const std::optional<Arguments>& arguments,
      const std::optional<platform::Environment>& environment, bool logOutput,
      const Progress& progress);

  void setStarting(bool starting);
  void waitForLaunch();

  // Who hears of an asynchronous run.
  struct Listener {
    std::shared_ptr<void> delegate;
    // Empty when the delegate does not respond.
    std::function<void(const platform::Data&, QVTaskEx&, const std::any&)> notify;
    std::any object;
  };

  static void refuseObject(const std::any& object);
  void startAsyncTask(const std::string& path, const std::optional<Arguments>& arguments,
                      Listener listener, const std::optional<platform::Environment>& environment);
  // `launchAsyncTask` for the task of one run, which may not be the instance's by now.
  void launchTask(const std::shared_ptr<platform::Task>& task);
  void deliverOutput(const std::shared_ptr<platform::Task>& task);
  void setListener(Listener listener);

  // Guards theTask_, starting_ and listener_.
  mutable std::mutex mutex_;
  std::shared_ptr<platform::Task> theTask_;
  // From the beginning of a timed run until its program is launched or the run is over.
  bool starting_ = false;
  std::condition_variable startingChanged_;
  Listener listener_;
};
