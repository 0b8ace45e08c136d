#include <algorithm>
#include <string_view>

#include "Shared/QVFileManager.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/Text.h"

namespace {

namespace file_system = platform::file_system;
namespace path = platform::path;

using Paths = std::vector<std::string>;

bool hasWildcard(const std::string& text) {
  return text.find('*') != std::string::npos;
}

// A listing says of all but links whether they are there.
bool isThere(file_system::Kind kind, const std::string& full) {
  return kind != file_system::Kind::symbolicLink || file_system::exists(full);
}

// What stands before each name of the folder.
std::string prefixOfItemsIn(const std::string& folder) {
  std::string prefix = path::appending(folder, "x");
  prefix.pop_back();
  return prefix;
}

void addEntriesLike(const std::string& folder, const std::string& pattern, Paths& matches) {
  const std::string prefix = prefixOfItemsIn(folder);
  file_system::visitEntriesLike(folder, pattern,
                                [&](std::string_view name, file_system::Kind kind) {
                                  std::string full;
                                  full.reserve(prefix.size() + name.size());
                                  full.append(prefix).append(name);
                                  if (isThere(kind, full)) matches.push_back(std::move(full));
                                });
}

Paths next(const Paths& candidates, const std::string& component) {
  Paths matches;
  for (const std::string& candidate : candidates) {
    if (hasWildcard(component)) {
      addEntriesLike(candidate, component, matches);
    } else if (std::string full = path::appending(candidate, component);
               file_system::exists(full)) {
      matches.push_back(std::move(full));
    }
  }
  return matches;
}

}  // namespace

// static
std::vector<std::string> QVFileManager::filesMatchingWildcardPath(const std::string& pattern) {
  return filesMatchingWildcardPath(pattern, std::nullopt);
}

// static
std::vector<std::string> QVFileManager::filesMatchingWildcardPath(
    const std::string& pattern, const std::optional<std::string>& base) {
  if (!hasWildcard(pattern)) return {base ? path::appending(*base, pattern) : pattern};
  const Paths start = {base.value_or("/")};
  Paths candidates = start;
  for (const std::string& component : path::components(pattern)) {
    candidates = component == "/" ? start : next(candidates, component);
  }
  return candidates;
}

// static
std::optional<std::string> QVFileManager::decodeWildcardPath(
    const std::string& pattern, const std::optional<std::string>& base) {
  std::vector<std::string> matches = filesMatchingWildcardPath(pattern, base);
  if (matches.empty()) return path::appending(base, pattern);
  return std::move(matches.front());
}

// static
std::string QVFileManager::validateFilename(const std::string& name) {
  std::string_view rest = name;
  if (rest.starts_with('.')) rest.remove_prefix(1);
  std::string valid(platform::text::trimmed(rest));
  std::erase_if(valid, [](char c) { return c == '/' || c == ':'; });
  return valid;
}

// static
std::string QVFileManager::uniqueFilename(const std::string& path) {
  if (!fileExistsAtPath(path)) return path;
  const std::string stem = path::deletingExtension(path);
  std::string extension = path::extension(path);
  if (!extension.empty()) extension.insert(0, 1, '.');
  for (unsigned long number = 2;; ++number) {
    std::string candidate = stem + " " + std::to_string(number) + extension;
    if (!fileExistsAtPath(candidate)) return candidate;
  }
}
