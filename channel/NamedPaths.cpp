#include "channel/NamedPaths.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

namespace channel {
namespace fs = std::filesystem;
namespace {

// A path without a slash at its end, which "/" itself loses too: what lies inside then begins with
// it and a slash.
std::string withoutSlash(const fs::path& path) {
  std::string text = path.string();
  while (text.ends_with('/')) text.pop_back();
  return text;
}

bool isInside(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

void add(std::vector<std::string>& paths, std::string path) {
  if (std::ranges::find(paths, path) == paths.end()) paths.push_back(std::move(path));
}

}  // namespace

std::vector<std::string> namedPaths(const std::vector<std::string>& arguments) {
  std::vector<std::string> paths;
  for (const std::string& argument : arguments) {
    if (!argument.starts_with('/')) continue;
    const fs::path written = fs::path(argument).lexically_normal();
    add(paths, withoutSlash(written));
    // An item that is a link is itself what some commands act on, and its target what others do.
    std::error_code unknown;
    const std::string item = withoutSlash(written);
    const fs::path folder = fs::weakly_canonical(fs::path(item).parent_path(), unknown);
    if (!unknown) add(paths, withoutSlash(folder / fs::path(item).filename()));
    const fs::path target = fs::weakly_canonical(argument, unknown);
    if (!unknown) add(paths, withoutSlash(target));
  }
  return paths;
}

bool overlap(const std::vector<std::string>& some, const std::vector<std::string>& others) {
  return std::ranges::any_of(some, [&others](const std::string& one) {
    return std::ranges::any_of(others, [&one](const std::string& other) {
      return isInside(one, other) || isInside(other, one);
    });
  });
}

}  // namespace channel
