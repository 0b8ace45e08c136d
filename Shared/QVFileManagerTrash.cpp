#include "Shared/ExistenceWait.h"
#include "Shared/FolderWalk.h"
#include "Shared/QVAuthorization.h"
#include "Shared/QVFileManager.h"
#include "Shared/RecycleItem.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/Text.h"

namespace {

namespace path_rules = platform::path;
using Paths = std::vector<std::string>;

// Answers what it tried to trash.
template <class Predicate>
Paths trashFilesIf(const std::string& folder, Predicate isMeant) {
  Paths meant;
  forEachFileIn(folder, [&](const std::string& path) {
    if (!isMeant(path)) return;
    QVFileManager::trashFile(path);
    meant.push_back(path);
  });
  return meant;
}

}  // namespace

// static
bool QVFileManager::trashFile(const Path& path) {
  return trashFile(path, true);
}

// static
bool QVFileManager::trashFile(const Path& path, bool shouldAuth) {
  if (!path_rules::namesItem(path)) return false;
  // A missing item is logged by this.
  unlockFile(*path);
  if (!fileExistsAtPath(*path) || recycleItem(*path)) return true;
  return shouldAuth && QVAuthorization::sharedController().authTrashFile(path);
}

// static
bool QVFileManager::trashFile(const Path& path, std::chrono::seconds timeout) {
  return trashFile(path) && isGoneWithin(*path, timeout);
}

// static
bool QVFileManager::trashDirectoryContents(const std::string& folder) {
  return trashDirectoryContents(folder, true);
}

// static
bool QVFileManager::trashDirectoryContents(const std::string& folder, bool shouldAuth) {
  bool all = true;
  for (const std::string& name : platform::file_system::list(folder).value_or(Paths())) {
    all = trashFile(path_rules::appending(folder, name), shouldAuth) && all;
  }
  return all;
}

// static
std::vector<std::string> QVFileManager::trashFilesOfType(const std::string& type,
                                                         const std::string& folder) {
  return trashFilesIf(folder, [wanted = platform::text::lowercased(type)](const std::string& path) {
    return platform::text::lowercased(path_rules::extension(path)) == wanted;
  });
}

// static
std::vector<std::string> QVFileManager::trashFilesNamed(const std::string& name,
                                                        const std::string& folder) {
  return trashFilesIf(
      folder, [&name](const std::string& path) { return path_rules::lastComponent(path) == name; });
}
