#include "platform/Path.h"

namespace platform::path {
namespace {

constexpr char kSlash = '/';

// The root keeps its one slash.
std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == kSlash) path.remove_suffix(1);
  return path;
}

std::string_view withoutLeadingSlashes(std::string_view path) {
  const std::size_t start = path.find_first_not_of(kSlash);
  return start == std::string_view::npos ? std::string_view() : path.substr(start);
}

std::string_view lastName(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind(kSlash);
  if (slash == std::string_view::npos || path.size() == 1) return path;
  return path.substr(slash + 1);
}

// The place of the dot before the extension, or npos when `name` has none.
std::size_t extensionDot(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == 0 || dot == name.size() - 1) return std::string_view::npos;
  return dot;
}

}  // namespace

std::string lastComponent(std::string_view path) {
  return std::string(lastName(path));
}

std::string deletingLastComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind(kSlash);
  if (slash == std::string_view::npos) return {};
  return std::string(withoutTrailingSlashes(path.substr(0, slash + 1)));
}

std::string appending(std::string_view base, std::string_view component) {
  if (base.empty()) return std::string(withoutTrailingSlashes(component));
  base = withoutTrailingSlashes(base);
  component = withoutLeadingSlashes(component);
  if (component.empty()) return std::string(base);
  std::string joined(base);
  if (joined != "/") joined += kSlash;
  return joined.append(withoutTrailingSlashes(component));
}

std::optional<std::string> appending(const std::optional<std::string>& base,
                                     std::string_view component) {
  if (!base) return std::nullopt;
  return appending(std::string_view(*base), component);
}

std::string appending(const std::string& base, std::string_view component) {
  return appending(std::string_view(base), component);
}

std::string appending(const char* base, std::string_view component) {
  return appending(std::string_view(base), component);
}

std::vector<std::string> components(std::string_view path) {
  std::vector<std::string> result;
  if (path.starts_with(kSlash)) result.emplace_back("/");
  std::string_view rest = withoutLeadingSlashes(path);
  if (rest.empty()) return result;
  while (!rest.empty()) {
    const std::string_view name = rest.substr(0, rest.find(kSlash));
    result.emplace_back(name);
    rest = withoutLeadingSlashes(rest.substr(name.size()));
  }
  if (path.ends_with(kSlash)) result.emplace_back("/");
  return result;
}

std::string extension(std::string_view path) {
  const std::string_view name = lastName(path);
  const std::size_t dot = extensionDot(name);
  return dot == std::string_view::npos ? std::string() : std::string(name.substr(dot + 1));
}

std::string deletingExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::string_view name = lastName(path);
  const std::size_t dot = extensionDot(name);
  if (dot == std::string_view::npos) return std::string(path);
  return std::string(path.substr(0, path.size() - name.size() + dot));
}

bool namesItem(const std::optional<std::string>& path) {
  if (!path || !path->starts_with(kSlash)) return false;
  const std::string_view name = lastName(*path);
  return name != "/" && name != "." && name != "..";
}

}  // namespace platform::path
