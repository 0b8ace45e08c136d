#include <algorithm>
#include <array>
#include <string_view>

#include "Shared/QVLocalPaths.h"
#include "platform/Path.h"
#include "platform/Text.h"

namespace {

constexpr std::string_view kRoot = "/";
constexpr std::size_t kShortestProtected = 3;
constexpr std::array<std::string_view, 2> kProtectedFolders = {"/Users/Shared", "/Volumes"};
constexpr std::array<std::string_view, 4> kProtectedPrefixes = {"/usr", "/var", "/private/var",
                                                                "/System"};
constexpr std::string_view kVolumes = "/Volumes/";
constexpr std::string_view kBackups = "Backups.backupdb";

// Of a character that is two UTF-16 units one unit goes; the byte that is left for the other
// equals no listed folder.
std::string withoutLastCharacter(std::string path) {
  const std::size_t wanted = platform::text::utf16Length(path) - 1;
  do {
    path.pop_back();
  } while (platform::text::utf16Length(path) > wanted);
  return path;
}

// A trailing slash has always taken the character before it along.
std::string asCompared(const std::string& path) {
  if (!path.ends_with('/')) return path;
  return withoutLastCharacter(path.substr(0, path.size() - 1));
}

using Folder = std::optional<std::string>;

// The user's folder first, then the machine's.
bool isEither(const std::string& path, Folder (*folder)(bool user)) {
  return folder(true) == path || folder(false) == path;
}

bool isStandardFolder(const std::string& path) {
  for (Folder (*folder)(bool) :
       {&QVLocalPaths::applicationDirectory, &QVLocalPaths::adminApplicationDirectory,
        &QVLocalPaths::documentDirectory, &QVLocalPaths::libraryDirectory,
        &QVLocalPaths::prefsDirectory, &QVLocalPaths::cacheDirectory,
        &QVLocalPaths::appSupportDirectory}) {
    if (isEither(path, folder)) return true;
  }
  for (Folder (*folder)() :
       {&QVLocalPaths::desktopDirectory, &QVLocalPaths::userDirectory,
        &QVLocalPaths::systemLibraryDirectory, &QVLocalPaths::localDocumentationDirectory}) {
    if (folder() == path) return true;
  }
  return std::ranges::find(kProtectedFolders, path) != kProtectedFolders.end();
}

bool isBelowSystemPrefix(const std::string& path) {
  return std::ranges::any_of(kProtectedPrefixes,
                             [&](std::string_view prefix) { return path.starts_with(prefix); });
}

}  // namespace

// static
bool QVLocalPaths::isPathSystemDirectory(const std::string& path) {
  return isPathSystemDirectory(path, false);
}

// static
bool QVLocalPaths::isPathSystemDirectory(const std::string& path, bool exactMatch) {
  if (path == kRoot) return true;
  if (platform::text::utf16Length(path) < kShortestProtected) return false;
  const std::string compared = asCompared(path);
  if (isStandardFolder(compared)) return true;
  if (exactMatch) return false;
  return isBelowSystemPrefix(compared);
}

// static
bool QVLocalPaths::isPathOnTimeMachineVolume(const std::string& path) {
  if (!path.starts_with(kVolumes)) return false;
  const auto names = platform::path::components(path);
  return std::ranges::find(names, kBackups) != names.end();
}
