#include "Shared/FolderWalk.h"
#include "Shared/QVFileManager.h"
#include "Shared/QVLog.h"
#include "platform/FileSystem.h"

namespace {

namespace file_system = platform::file_system;

void setLock(const std::string& path, bool locked) {
  const platform::Status status = file_system::setImmutable(path, locked);
  if (status.ok()) return;
  // Both ways it is the unlocking that is said to have failed.
  QVLog::fastAppendLog("Unable to unlock file %@: %@", path, status.description());
}

}  // namespace

// static
void QVFileManager::lockFile(const std::string& path) {
  setLock(path, true);
}

// static
void QVFileManager::unlockFile(const std::string& path) {
  setLock(path, false);
}

// static
void QVFileManager::lockFolder(const std::string& folder) {
  forEachFileIn(folder, &QVFileManager::lockFile);
}

// static
void QVFileManager::unlockFolder(const std::string& folder) {
  forEachFileIn(folder, &QVFileManager::unlockFile);
}

// static
void QVFileManager::setPosixPermissions(std::uint64_t permissions, const std::string& path) {
  const platform::Status status =
      file_system::setPermissions(path, static_cast<std::uint32_t>(permissions));
  if (status.ok()) return;
  QVLog::appendLog("Error setting permissions for file %@: %@", path, status.description());
}
