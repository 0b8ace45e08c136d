#include "Shared/QVFileManager.h"
#include "Shared/QVLog.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"

namespace {

namespace file_system = platform::file_system;

using std::chrono::system_clock;
using Date = std::optional<system_clock::time_point>;

constexpr platform::clock::Seconds kPoll = std::chrono::microseconds(500);
constexpr std::chrono::seconds kQuiet{4};

Date modificationDate(const std::string& path) {
  const auto attributes = file_system::attributes(path);
  if (!attributes) return std::nullopt;
  return attributes->modificationDate;
}

bool isRecent(system_clock::time_point date) {
  return date >= system_clock::now() - kQuiet;
}

bool isLockFileThere(const std::string& path, const std::optional<std::string>& lockName) {
  namespace rules = platform::path;
  return lockName &&
         file_system::exists(rules::appending(rules::deletingLastComponent(path), *lockName));
}

}  // namespace

// static
void QVFileManager::waitForFileCreation(const std::string& path, std::chrono::seconds timeout) {
  const auto start = std::chrono::steady_clock::now();
  if (fileExistsAtPath(path) && fileSize(path) != 0) return;
  const auto elapsed = std::chrono::steady_clock::now() - start;
  if (std::chrono::duration_cast<std::chrono::seconds>(elapsed) > timeout) return;
  QVLog::appendLog("File %@ is not yet created. Waiting...", path);
  platform::clock::sleep(kPoll);
}

// static
void QVFileManager::waitForFileWrites(const std::string& path) {
  waitForFileWrites(path, std::nullopt);
}

// static
void QVFileManager::waitForFileWrites(const std::string& path,
                                      const std::optional<std::string>& lockName) {
  Date date = modificationDate(path);
  const bool beingWritten = date && isRecent(*date);
  if (!beingWritten && !isLockFileThere(path, lockName)) return;
  QVLog::appendLog("File %@ is currently being written to. Waiting...", path);
  // A file that is not there counts as changed just now.
  while (!date || isRecent(*date)) {
    platform::clock::sleep(kPoll);
    date = modificationDate(path);
  }
  QVLog::appendLog("File %@ finished writing.", path);
}
