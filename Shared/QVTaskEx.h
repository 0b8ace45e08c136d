#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Task.h"
#include "platform/Text.h"

// Runs external programs: with or without waiting, for their exit status, their output as bytes or
// as text, and all of these under a time-out.
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
// launch, so that even a time-out of 0 ends a program that would go on.
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

  // Guards theTask_ and starting_.
  mutable std::mutex mutex_;
  std::shared_ptr<platform::Task> theTask_;
  // From the beginning of a timed run until its program is launched or the run is over.
  bool starting_ = false;
  std::condition_variable startingChanged_;
};
