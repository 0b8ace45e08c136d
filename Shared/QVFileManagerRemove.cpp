#include "Shared/ExistenceWait.h"
#include "Shared/QVAuthorization.h"
#include "Shared/QVFileManager.h"
#include "Shared/QVLog.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"

// static
bool QVFileManager::removeFile(const Path& path) {
  return removeFile(path, true);
}

// static
bool QVFileManager::removeFile(const Path& path, bool shouldAuth) {
  if (!platform::path::namesItem(path)) return false;
  // A missing item is logged by this.
  unlockFile(*path);
  if (!fileExistsAtPath(*path)) return true;
  const platform::Status status = platform::file_system::remove(*path);
  if (status.ok()) return true;
  // The second half is logged even where nothing follows.
  QVLog::appendLog("Error removing file: %@. Authorizing...", status.description());
  return shouldAuth && QVAuthorization::sharedController().authRemoveFile(path);
}

// static
bool QVFileManager::removeFile(const Path& path, std::chrono::seconds timeout) {
  return removeFile(path) && isGoneWithin(*path, timeout);
}

// static
bool QVFileManager::removeFolderIfEmpty(const std::string& folder) {
  // What cannot be listed counts as empty, and a file cannot.
  const bool isOther = fileExistsAtPath(folder) && !isDirectoryAtPath(folder);
  return !isOther && isFolderEmpty(folder) && removeFile(folder);
}
