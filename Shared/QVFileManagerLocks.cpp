#include <set>

#include "Shared/QVFileManager.h"
#include "Shared/QVLog.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"

namespace {

namespace file_system = platform::file_system;

using Change = void (*)(const std::string& path);
using Visited = std::set<file_system::Identity>;

void setLock(const std::string& path, bool locked) {
  const platform::Status status = file_system::setImmutable(path, locked);
  if (status.ok()) return;
  // Both ways it is the unlocking that is said to have failed.
  QVLog::fastAppendLog("Unable to unlock file %@: %@", path, status.description());
}

// `visited` ends the walk where a link leads back to a folder.
void changeContents(const std::string& folder, Change change, Visited& visited) {
  const auto identity = file_system::identity(folder);
  if (!identity || !visited.insert(*identity).second) return;
  for (const std::string& name : file_system::list(folder).value_or(std::vector<std::string>())) {
    const std::string full = platform::path::appending(folder, name);
    if (QVFileManager::isDirectoryAtPath(full)) {
      changeContents(full, change, visited);
    } else {
      change(full);
    }
  }
}

void changeFolder(const std::string& folder, Change change) {
  Visited visited;
  changeContents(folder, change, visited);
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
  changeFolder(folder, &QVFileManager::lockFile);
}

// static
void QVFileManager::unlockFolder(const std::string& folder) {
  changeFolder(folder, &QVFileManager::unlockFile);
}

// static
void QVFileManager::setPosixPermissions(std::uint64_t permissions, const std::string& path) {
  const platform::Status status =
      file_system::setPermissions(path, static_cast<std::uint32_t>(permissions));
  if (status.ok()) return;
  QVLog::appendLog("Error setting permissions for file %@: %@", path, status.description());
}
