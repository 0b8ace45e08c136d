#include "Shared/QVLog.h"

#include <utility>

#include "Shared/GlobalPreferences.h"
#include "Shared/LogFiles.h"
#include "Shared/LogHeader.h"
#include "Shared/QVLocalPaths.h"
#include "platform/Application.h"
#include "platform/Bundle.h"
#include "platform/Console.h"
#include "platform/FileSystem.h"
#include "platform/NoDestructor.h"
#include "platform/Path.h"
#include "platform/PersonalFiles.h"

namespace {

using platform::formatted;

// With so many texts in the queue, the end of the application does not wait for them.
constexpr std::size_t kTooManyToWaitFor = 20;

// The lock on the class.
std::recursive_mutex& classLock() {
  static platform::NoDestructor<std::recursive_mutex> lock;
  return *lock;
}

// Guarded by classLock().
QVLog* allocated = nullptr;
// Set once the instance is complete.
std::atomic<QVLog*> shared = nullptr;

void appendHeader() {
  for (const log_header::Line& line : log_header::lines()) {
    if (line.isWaitedFor) {
      QVLog::appendLog("%@", line.text);
    } else {
      QVLog::fastAppendLog("%@", line.text);
    }
  }
}

bool makeFolder(const std::optional<std::string>& folder) {
  namespace personal_files = platform::personal_files;
  if (folder &&
      (personal_files::exists(*folder) || personal_files::createDirectory(*folder).ok())) {
    return true;
  }
  platform::console::print(formatted("Unable to create folder %s.\n", folder));
  return false;
}

// Creates the file, or makes it empty.
bool makeEmpty(const std::optional<std::string>& path) {
  const platform::Status status = platform::file_system::writeAtomically(path.value_or(""), "");
  if (status.ok()) return true;
  platform::console::print(
      formatted("Unable to create log file %s - %s\n", path, status.description()));
  return false;
}

}  // namespace

// static
QVLog& QVLog::sharedController() {
  if (QVLog* log = shared.load(std::memory_order_acquire)) return *log;
  const std::lock_guard lock(classLock());
  if (shared == nullptr) {
    allocWithZone();
    allocated->start();
    shared.store(allocated, std::memory_order_release);
  }
  return *shared;
}

// static
QVLog* QVLog::allocWithZone() {
  const std::lock_guard lock(classLock());
  if (allocated != nullptr) return nullptr;
  allocated = new QVLog;  // never destroyed
  return allocated;
}

void QVLog::start() {
  setWriteQueue(std::make_shared<LogQueue>(
      [this](const LogBatch& batch, std::size_t first) { return writeSome(batch, first); }));
  terminationObserver_ = platform::application::addTerminationObserver(willTerminate);
  platform::setUncaughtExceptionHandler(uncaughtExceptionHandler);
}

// static
void QVLog::createNewLog() {
  createNewLog(std::nullopt);
}

// static
void QVLog::createNewLog(const std::optional<std::string>& appName) {
  std::mutex lock;
  const std::lock_guard locked(lock);
  sharedController().startNewFile(appName);
}

void QVLog::startNewFile(const std::optional<std::string>& name) {
  setFileHandle(nullptr);
  if (global_preferences::isSwitchedOn("disable-logging")) {
    platform::console::print("Logging is disabled\n");
    setLoggingDisabled(true);
    return;
  }
  if (name && !appName()) setAppName(name);
  setBytesWritten(0);
  if (openNewFile()) appendHeader();
}

bool QVLog::openNewFile() {
  const auto name = appName();
  const auto folder = log_files::folder();
  const auto current = log_files::current(name);
  if (!makeFolder(folder)) return false;
  if (current && platform::file_system::exists(*current) && !log_files::rotate(*folder, name)) {
    return false;
  }
  if (!makeEmpty(current)) return false;
  auto file = platform::AppendingFile::open(*current);
  if (!file) return false;
  setFileHandle(std::move(file));
  return true;
}

// static
void QVLog::willTerminate() {
  QVLog& log = sharedController();
  platform::application::removeTerminationObserver(log.terminationObserver_);
  log.dealloc();
}

void QVLog::dealloc() {
  if (const auto queue = writeQueue(); queue && queue->operationCount() < kTooManyToWaitFor) {
    queue->waitUntilAllOperationsAreFinished();
  }
  setAppName(std::nullopt);
  setWriteQueue(nullptr);
  if (const auto file = fileHandle()) file->close();
  setFileHandle(nullptr);
}

// static
std::vector<std::string> QVLog::availableLogs() {
  return log_files::existing(sharedController().appName());
}

std::optional<std::string> QVLog::appName() const {
  {
    const std::lock_guard lock(mutex_);
    if (appName_) return appName_;
  }
  const auto& executable = platform::Bundle::main().executablePath();
  if (!executable) return std::nullopt;
  return platform::path::deletingExtension(platform::path::lastComponent(*executable));
}

void QVLog::setAppName(std::optional<std::string> appName) {
  const std::lock_guard lock(mutex_);
  appName_ = std::move(appName);
}

std::shared_ptr<platform::AppendingFile> QVLog::fileHandle() const {
  const std::lock_guard lock(mutex_);
  return fileHandle_;
}

void QVLog::setFileHandle(std::shared_ptr<platform::AppendingFile> fileHandle) {
  const std::lock_guard lock(mutex_);
  fileHandle_.swap(fileHandle);  // what it held is let go of outside the lock
  ++handleGeneration_;
}

void QVLog::setReopenedHandle(std::shared_ptr<platform::AppendingFile> fileHandle,
                              std::uint64_t generation) {
  const std::lock_guard lock(mutex_);
  if (handleGeneration_ != generation) return;
  fileHandle_.swap(fileHandle);
  ++handleGeneration_;
}

std::uint64_t QVLog::handleGeneration() const {
  const std::lock_guard lock(mutex_);
  return handleGeneration_;
}

std::shared_ptr<LogQueue> QVLog::writeQueue() const {
  const std::lock_guard lock(mutex_);
  return writeQueue_;
}

void QVLog::setWriteQueue(std::shared_ptr<LogQueue> writeQueue) {
  const std::lock_guard lock(mutex_);
  writeQueue_.swap(writeQueue);
}

void uncaughtExceptionHandler(const platform::Exception& exception) {
  QVLog::appendLogAndPrint(exception.reason());
  QVLog::finishWriting();
}
