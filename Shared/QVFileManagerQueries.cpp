#include <string_view>

#include "Shared/QVFileManager.h"
#include "platform/Console.h"
#include "platform/FileSystem.h"
#include "platform/ItemChanged.h"
#include "platform/Path.h"
#include "platform/Workspace.h"

namespace {

namespace file_system = platform::file_system;

constexpr std::size_t kMountPointComponents = 3;

// The path's first three components joined by slashes. The first is itself a slash, so two stand in
// front, which the file system takes for one; the console's line shows them. None for fewer.
std::optional<std::string> mountPoint(const std::string& path) {
  const std::vector<std::string> components = platform::path::components(path);
  if (components.size() < kMountPointComponents) return std::nullopt;
  return components[0] + "/" + components[1] + "/" + components[2];
}

}  // namespace

// static
bool QVFileManager::fileExistsAtPath(const std::string& path) {
  return file_system::exists(path);
}

// static
bool QVFileManager::isDirectoryAtPath(const std::string& path) {
  return file_system::isDirectory(path);
}

// static
bool QVFileManager::isPackageAtPath(const std::string& path) {
  return platform::workspace::isFilePackage(path);
}

// static
bool QVFileManager::isSymbolicLinkAtPath(const std::string& path) {
  return file_system::symbolicLinkTarget(path).has_value();
}

// static
bool QVFileManager::isFileLocked(const std::string& path) {
  const auto attributes = file_system::attributes(path);
  return attributes && attributes->immutable;
}

// static
bool QVFileManager::isVolumeMountedForPath(const std::string& path) {
  if (!path.starts_with("/Volumes")) return true;
  const std::optional<std::string> point = mountPoint(path);
  return !point || fileExistsAtPath(*point);
}

// static
bool QVFileManager::isDriveMountedForPath(const std::string& path) {
  if (!path.starts_with("/Volumes/")) return true;
  const std::optional<std::string> point = mountPoint(path);
  if (!point) return true;
  platform::console::log("mountpoint: %@", *point);
  return fileExistsAtPath(*point);
}

// static
platform::FileReference QVFileManager::stringToFSRef(const std::string& path) {
  return platform::FileReference::to(path);
}

// static
std::string QVFileManager::stringWithFSRef(const platform::FileReference& reference) {
  return reference.path();
}

// static
void QVFileManager::notifyFileSystemChanged(const std::string& path) {
  SendFinderSyncEvent(stringToFSRef(path));
}

// static
bool QVFileManager::registerApplicationWithLaunchServices(const std::string& path) {
  return platform::workspace::registerApplication(path);
}

std::int16_t SendFinderSyncEvent(const platform::FileReference& reference) {
  return static_cast<std::int16_t>(platform::notifyItemChanged(reference).code());
}
