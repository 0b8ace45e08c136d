#include "Shared/LogFiles.h"
#include "Shared/LogLines.h"
#include "Shared/QVLog.h"
#include "platform/Console.h"
#include "platform/MainThread.h"
#include "platform/Text.h"

namespace {

using platform::formatted;

constexpr std::uint64_t kLargestFile = 500'000;
// A larger write costs no less per byte.
constexpr std::size_t kLargestWrite = 64 * 1024;
// Messages and queues of up to so many UTF-16 units are written through.
constexpr std::uint64_t kShort = 99;

}  // namespace

// static
void QVLog::append(std::optional<std::string_view> format, FormatArguments arguments) {
  if (!format) return;
  QVLog& log = sharedController();
  const std::string message = platform::formatArguments(*format, arguments);
  log.appendTextToLog(message);
  if (platform::main_thread::isCurrent() || log.bytesInQueue() > kShort) return;
  const std::size_t units = platform::text::utf16Length(message);
  if (units > 0 && units <= kShort) finishWriting();
}

// static
void QVLog::appendAndPrint(std::optional<std::string_view> format, FormatArguments arguments) {
  if (!format) return;
  const std::string message = platform::formatArguments(*format, arguments);
  std::string text(platform::text::trimmed(message));
  append(text, {});
  text += '\n';
  platform::console::print(text);
}

// static
void QVLog::fastAppend(std::optional<std::string_view> format, FormatArguments arguments) {
  if (!format) return;
  sharedController().appendTextToLog(platform::formatArguments(*format, arguments));
}

// static
void QVLog::finishWriting() {
  std::mutex lock;
  const std::lock_guard locked(lock);
  if (const auto queue = sharedController().writeQueue()) {
    queue->waitUntilAllOperationsAreFinished();
  }
}

void QVLog::appendTextToLog(std::string_view text) {
  const std::string_view trimmed = platform::text::trimmed(text);
  if (trimmed.empty()) return;
  const std::size_t units = platform::text::utf16Length(trimmed);
  bytesInQueue_.fetch_add(units, std::memory_order_relaxed);
  if (const auto queue = writeQueue()) queue->addOperation(trimmed, units);
}

void QVLog::appendLogOnThread(std::string_view text) {
  LogBatch batch;
  batch.add(text, platform::text::utf16Length(text));
  writeSome(batch, 0);
}

// Carries out operations of the queue from `first` on, as many as one write takes.
std::size_t QVLog::writeSome(const LogBatch& batch, std::size_t first) {
  std::size_t done = 1;
  try {
    if (loggingDisabled()) return done;
    const auto file = openFile();
    if (file == nullptr) {
      print(formatted("Unable to log the following information: %s\n", batch.text(first)));
      print("Unable to open log for output\n");
      takeOffQueue(batch.units(first));
      return done;
    }
    const LogLines lines = gather(batch, first);
    const auto appended = file->append(lines.bytes());
    const bool failed = !appended.status.ok();
    const std::size_t whole = failed ? lines.wholeIn(appended.bytes) : lines.size();
    done = whole + (failed ? 1 : 0);
    if (failed) printFailure(appended.status.description());
    noteWritten(batch, first, whole, lines.endOf(whole));
  } catch (const platform::Exception& exception) {
    printFailure(exception.reason());
  }
  return done;
}

// The open log file; opened anew where it is there but was not opened, or never successfully.
std::shared_ptr<platform::AppendingFile> QVLog::openFile() {
  const std::uint64_t generation = handleGeneration();
  auto file = fileHandle();
  if (file != nullptr) return file;
  const auto path = log_files::current(appName());
  if (path) file = platform::AppendingFile::open(*path);
  if (file != nullptr) setReopenedHandle(file, generation);
  return file;
}

// The line that fills the file up is the last of it, so nothing is gathered behind that.
LogLines QVLog::gather(const LogBatch& batch, std::size_t first) const {
  const std::uint64_t before = bytesWritten();
  LogLines lines;
  do {
    lines.add(batch.text(first++));
  } while (first < batch.size() && lines.bytes().size() < kLargestWrite &&
           before + lines.bytes().size() < kLargestFile);
  return lines;
}

// Accounts for `count` texts whose lines are in the file with `bytes` in all.
void QVLog::noteWritten(const LogBatch& batch, std::size_t first, std::size_t count,
                        std::size_t bytes) {
  if (count == 0) return;
  bytesWritten_.fetch_add(bytes, std::memory_order_relaxed);
  const std::size_t last = first + count - 1;
  while (first < last) takeOffQueue(batch.units(first++));
  if (bytesWritten() >= kLargestFile) {
    createNewLog(appName());
    appendLog("Log truncated at 500KB");
  }
  takeOffQueue(batch.units(last));
}

void QVLog::takeOffQueue(std::size_t units) noexcept {
  bytesInQueue_.fetch_sub(units, std::memory_order_relaxed);
}

void QVLog::printFailure(std::string_view reason) const {
  print(formatted("Exception writing to log: %s\n", reason));
}

void QVLog::print(std::string_view message) const {
  if (!loggingDisabled()) platform::console::print(message);
}
