#include "archiver/EntryPath.h"

#include <algorithm>
#include <vector>

namespace archiver {
namespace {

// Without the empty ones and ".".
std::vector<std::string_view> componentsOf(std::string_view path) {
  std::vector<std::string_view> components;
  while (!path.empty()) {
    const std::size_t slash = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, slash);
    if (!component.empty() && component != ".") components.push_back(component);
    path.remove_prefix(std::min(slash + 1, path.size()));
  }
  return components;
}

}  // namespace

std::optional<std::string> entryPath(std::string_view name) {
  if (name.empty() || name.starts_with('/')) return std::nullopt;
  std::string path;
  for (const std::string_view component : componentsOf(name)) {
    if (component == "..") return std::nullopt;
    if (!path.empty()) path += '/';
    path += component;
  }
  return path;
}

std::string parentPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash);
}

bool namesOutside(const std::string& path, std::string_view target) {
  if (target.starts_with('/')) return true;
  std::size_t depth = componentsOf(parentPath(path)).size();
  for (const std::string_view component : componentsOf(target)) {
    if (component != "..") {
      ++depth;
    } else if (depth-- == 0) {
      return true;
    }
  }
  return false;
}

}  // namespace archiver
