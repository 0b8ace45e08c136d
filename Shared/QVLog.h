#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Shared/LogLines.h"
#include "Shared/LogQueue.h"
#include "Shared/NeverReleased.h"
#include "platform/AppendingFile.h"
#include "platform/Exception.h"
#include "platform/Format.h"

// The one log of the process. Texts go through a serial queue to a worker thread, which puts the
// date in front and appends them, in the order of the calls, to <appName>.1.log in the folder
// Logs/Quorvale of the user's library (as superuser: of the local library). A file that reaches
// 500,000 bytes becomes .2 and a new one is started; at most five are kept.
//
// Nothing here raises or answers a failure: what goes wrong is printed on standard output, unless
// logging is disabled, and the text is lost. Formats are those of platform/Format.h. Any thread may
// call anything; only where it says so does a call wait for the disk.
class QVLog : public NeverReleased<QVLog> {
 public:
  // The one instance. The first call makes it, with its queue, sees to it that the log is drained
  // when the application terminates, and installs uncaughtExceptionHandler.
  static QVLog& sharedController();

  // The instance when this is the first call in the process and sharedController was not called
  // either; null ever after. It has no queue before sharedController was called.
  static QVLog* allocWithZone();

  // Starts a new log file with a header: moves the present files up by one and queues the header's
  // lines. With "disable-logging" switched on in com.quorvale.global.plist of the user's
  // preferences it only disables logging for good. Blocks for the disk, but not for the writer.
  // `appName` names the files where the main bundle has no executable to name them.
  static void createNewLog();
  static void createNewLog(const std::optional<std::string>& appName);

  // What happens when the application terminates: with fewer than 20 texts in the queue waits until
  // they are written, otherwise leaves them to their fate; then closes the log. Texts that come
  // later are dropped in silence.
  static void willTerminate();

  // The full paths of the log files that exist in the user's library, the newest first.
  static std::vector<std::string> availableLogs();

  // Queues a message; none does nothing. Waits until it is on the disk when it is short (1 to 99
  // UTF-16 code units before trimming), at most 99 units are pending, it included, and the caller
  // is neither the main thread nor the writer's.
  template <class... Arguments>
  static void appendLog(std::optional<std::string_view> format, const Arguments&... arguments) {
    append(format, {platform::FormatArgument(arguments)...});
  }

  // The same for the message without white space at its ends, which is then printed on standard
  // output with a newline. On its way to the log the finished message serves as a format once
  // more: a percent sign in it is read as a directive.
  template <class... Arguments>
  static void appendLogAndPrint(std::optional<std::string_view> format,
                                const Arguments&... arguments) {
    appendAndPrint(format, {platform::FormatArgument(arguments)...});
  }

  // The same as appendLog, but never waits.
  template <class... Arguments>
  static void fastAppendLog(std::optional<std::string_view> format, const Arguments&... arguments) {
    fastAppend(format, {platform::FormatArgument(arguments)...});
  }

  // Blocks until all texts queued before the call are written (or lost), and the header of the file
  // that they may have started. On the writer's own thread it returns at once.
  static void finishWriting();

  // Queues one text, without white space at its ends; a blank one is dropped.
  void appendTextToLog(std::string_view text);

  // Writes one text; what the queue runs. Blocks for the disk.
  void appendLogOnThread(std::string_view text);

  // Drains and closes as willTerminate does. The instance itself stays, as everything that keeps it
  // or lets it go does nothing.
  void dealloc();

  // The base name of the log files; when none is set, the file name of the main bundle's executable
  // without its extension, if there is one.
  std::optional<std::string> appName() const;
  void setAppName(std::optional<std::string> appName);

  // The open log file; null when none is open.
  std::shared_ptr<platform::AppendingFile> fileHandle() const;
  void setFileHandle(std::shared_ptr<platform::AppendingFile> fileHandle);
  // The same for a file that was opened when the handle had been set `generation` times: nothing
  // when it was set since, to none or to that of a log that has just begun.
  void setReopenedHandle(std::shared_ptr<platform::AppendingFile> fileHandle,
                         std::uint64_t generation);
  // How often the handle was set.
  std::uint64_t handleGeneration() const;

  // Bytes written to the current log file since it was started.
  std::uint64_t bytesWritten() const noexcept {
    return bytesWritten_.load(std::memory_order_relaxed);
  }
  void setBytesWritten(std::uint64_t bytes) noexcept {
    bytesWritten_.store(bytes, std::memory_order_relaxed);
  }

  // The queue of texts that are not yet written; null after willTerminate.
  std::shared_ptr<LogQueue> writeQueue() const;
  void setWriteQueue(std::shared_ptr<LogQueue> writeQueue);

  // UTF-16 code units in the queue. Those of a text that failed to be written, was dropped or met
  // disabled logging are never taken off again; callers then no longer wait.
  std::uint64_t bytesInQueue() const noexcept {
    return bytesInQueue_.load(std::memory_order_relaxed);
  }
  void setBytesInQueue(std::uint64_t units) noexcept {
    bytesInQueue_.store(units, std::memory_order_relaxed);
  }

  // Whether the global switch has turned logging off.
  bool loggingDisabled() const noexcept { return loggingDisabled_.load(std::memory_order_relaxed); }
  void setLoggingDisabled(bool disabled) noexcept {
    loggingDisabled_.store(disabled, std::memory_order_relaxed);
  }

 private:
  using FormatArguments = std::initializer_list<platform::FormatArgument>;

  QVLog() = default;
  ~QVLog() = default;

  static void append(std::optional<std::string_view> format, FormatArguments arguments);
  static void appendAndPrint(std::optional<std::string_view> format, FormatArguments arguments);
  static void fastAppend(std::optional<std::string_view> format, FormatArguments arguments);

  void start();
  void startNewFile(const std::optional<std::string>& appName);
  bool openNewFile();

  std::size_t writeSome(const LogBatch& batch, std::size_t first);
  std::shared_ptr<platform::AppendingFile> openFile();
  LogLines gather(const LogBatch& batch, std::size_t first) const;
  void noteWritten(const LogBatch& batch, std::size_t first, std::size_t count, std::size_t bytes);
  void takeOffQueue(std::size_t units) noexcept;
  void printFailure(std::string_view reason) const;
  void print(std::string_view message) const;

  mutable std::mutex mutex_;  // guards appName_, fileHandle_ and writeQueue_
  std::optional<std::string> appName_;
  std::shared_ptr<platform::AppendingFile> fileHandle_;
  // How often fileHandle_ was set; guarded by mutex_, too.
  std::uint64_t handleGeneration_ = 0;
  std::shared_ptr<LogQueue> writeQueue_;

  // They steer waiting and rotation only, so no order among them is needed.
  std::atomic<std::uint64_t> bytesWritten_ = 0;
  std::atomic<std::uint64_t> bytesInQueue_ = 0;
  std::atomic<bool> loggingDisabled_ = false;
  std::atomic<unsigned> terminationObserver_ = 0;
};

// Logs and prints the reason of an exception that nobody caught, and waits until it is on the disk.
void uncaughtExceptionHandler(const platform::Exception& exception);
