#include "Shared/ExistenceWait.h"
#include "Shared/QVAuthorization.h"
#include "Shared/QVFileManager.h"
#include "Shared/QVLog.h"
#include "platform/Console.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"

namespace {

namespace path_rules = platform::path;

// The folder whose structure is to be made anew: the item's own when it is one that people look
// into, else the one that it is in.
std::string folderToMirror(const std::string& path) {
  const bool isFolder =
      QVFileManager::isDirectoryAtPath(path) && !QVFileManager::isPackageAtPath(path);
  return isFolder ? path : path_rules::deletingLastComponent(path);
}

}  // namespace

// static
bool QVFileManager::createDirectory(const Path& path) {
  return createDirectory(path, true);
}

// static
bool QVFileManager::createDirectory(const Path& path, bool shouldAuth) {
  if (!path || !path->starts_with('/')) return false;
  if (!isDriveMountedForPath(*path)) {
    platform::console::log("Unable to create directory. Drive is not mounted.");
    return false;
  }
  const platform::Status status = platform::file_system::createDirectory(*path);
  if (status.ok()) return true;
  // The second half is logged even where nothing follows.
  QVLog::appendLog("Error creating folder: %@. Authorizing...", status.description());
  return shouldAuth && QVAuthorization::sharedController().authCreateDir(path);
}

// static
bool QVFileManager::createDirectory(const Path& path, std::chrono::seconds timeout) {
  return createDirectory(path) && existsWithin(*path, timeout);
}

// static
std::string QVFileManager::createDirectoryStructure(const std::string& path,
                                                    const std::string& destination) {
  // Joined with nothing, the path would mean itself.
  if (destination.empty()) return {};
  std::string folder = path_rules::appending(destination, folderToMirror(path));
  if (!fileExistsAtPath(folder)) createDirectory(folder);
  return folder;
}
