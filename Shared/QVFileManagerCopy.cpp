#include "Shared/ExistenceWait.h"
#include "Shared/QVAuthorization.h"
#include "Shared/QVFileManager.h"
#include "Shared/QVLog.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"

namespace path_rules = platform::path;

// static
bool QVFileManager::copyFile(const Path& source, const Path& destination) {
  return copyFile(source, destination, true);
}

// static
bool QVFileManager::copyFile(const Path& source, const Path& destination, bool shouldAuth) {
  if (!source) {
    QVLog::appendLogAndPrint("Error copying file: source path is nil");
    return false;
  }
  if (!destination) {
    QVLog::appendLogAndPrint("Error copying file %@: destination path is nil", *source);
    return false;
  }
  if (!path_rules::namesItem(destination)) return false;
  unlockFile(path_rules::deletingLastComponent(*destination));
  const platform::Status status = platform::file_system::copy(*source, *destination);
  if (status.ok()) return true;
  // The second half is logged even where nothing follows.
  QVLog::appendLog("Error copying file: %@. Authorizing...", status.description());
  return shouldAuth && QVAuthorization::sharedController().authCopyFile(source, destination);
}

// static
bool QVFileManager::copyFile(const Path& source, const Path& destination,
                             std::chrono::seconds timeout) {
  return copyFile(source, destination) && existsWithin(*destination, timeout);
}

// static
bool QVFileManager::copyContentsOfDirectory(const std::string& source,
                                            const std::string& destination,
                                            std::chrono::seconds timeout) {
  const auto names = platform::file_system::list(source).value_or(std::vector<std::string>());
  for (const std::string& name : names) {
    QVLog::fastAppendLog("File: %@", name);
    if (!copyFile(path_rules::appending(source, name), path_rules::appending(destination, name),
                  timeout)) {
      return false;
    }
  }
  return true;
}
