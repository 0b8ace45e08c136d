#include <set>

#include "Shared/QVFileManager.h"
#include "platform/FileSystem.h"
#include "platform/Format.h"
#include "platform/Path.h"

namespace {

namespace file_system = platform::file_system;

// The folders on the way down to the one that is looked at.
using Ancestors = std::set<file_system::Identity>;

// What file browsers leave behind in a folder.
bool isHousekeeping(const std::string& name) {
  return name == ".DS_Store" || name == "Icon\r";
}

// A link that leads back up is something, so that a folder around it is not empty.
bool holdsNothing(const std::string& folder, Ancestors& ancestors) {
  const auto identity = file_system::identity(folder);
  if (!identity) return true;
  if (!ancestors.insert(*identity).second) return false;
  for (const std::string& name : file_system::list(folder).value_or(std::vector<std::string>())) {
    if (isHousekeeping(name)) continue;
    const std::string full = platform::path::appending(folder, name);
    if (!file_system::isDirectory(full) || !holdsNothing(full, ancestors)) return false;
  }
  ancestors.erase(*identity);
  return true;
}

}  // namespace

// static
std::int64_t QVFileManager::fileSize(const std::string& path) {
  return static_cast<std::int64_t>(file_system::sizeOfFiles(path));
}

// static
bool QVFileManager::isFolderEmpty(const std::string& folder) {
  Ancestors ancestors;
  return holdsNothing(folder, ancestors);
}

// static
std::string QVFileManager::formatFileSize(double size) {
  constexpr double kStep = 1024;
  using platform::formatted;
  if (size < kStep) return formatted("%0.0f B", size);
  if (size < kStep * kStep) return formatted("%0.2f KB", size / kStep);
  if (size < kStep * kStep * kStep) return formatted("%0.2f MB", size / kStep / kStep);
  // A value that is not a number passes every comparison by.
  return formatted("%0.2f GB", size / kStep / kStep / kStep);
}
