#include "platform/linux/users/XdgUserDirs.h"

#include <algorithm>

#include "platform/Path.h"

namespace platform::xdg_user_dirs {
namespace {

constexpr std::string_view kHome = "$HOME";

void skipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

bool skip(std::string_view& text, std::string_view expected) {
  if (!text.starts_with(expected)) return false;
  text.remove_prefix(expected.size());
  return true;
}

// The text between double quotes, in which a backslash takes the next character as it is; none when
// it is not quoted to the end.
std::optional<std::string> unquoted(std::string_view text) {
  if (!skip(text, "\"")) return std::nullopt;
  std::string value;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') return value;
    if (text[i] == '\\' && ++i == text.size()) break;
    value += text[i];
  }
  return std::nullopt;
}

// The value that a line gives to `key`: key="value".
std::optional<std::string> valueOf(std::string_view line, std::string_view key) {
  skipBlanks(line);
  if (!skip(line, key)) return std::nullopt;
  skipBlanks(line);
  if (!skip(line, "=")) return std::nullopt;
  skipBlanks(line);
  return unquoted(line);
}

bool isPlain(const std::string& value) {
  const auto names = path::components(value);
  return value.find('\0') == std::string::npos && std::ranges::find(names, "..") == names.end();
}

std::optional<std::string> resolved(const std::string& value, std::string_view home,
                                    Accept accept) {
  if (!isPlain(value)) return std::nullopt;
  if (value == kHome) return std::string(home);
  if (value.starts_with(std::string(kHome) + "/")) {
    return path::appending(home, std::string_view(value).substr(kHome.size()));
  }
  if (accept == Accept::belowHome || !value.starts_with('/')) return std::nullopt;
  return path::appending("/", value);
}

}  // namespace

std::optional<std::string> lookUp(std::string_view contents, std::string_view key,
                                  std::string_view home, Accept accept) {
  std::optional<std::string> found;
  while (!contents.empty()) {
    const std::string_view line = contents.substr(0, contents.find('\n'));
    contents.remove_prefix(std::min(line.size() + 1, contents.size()));
    const auto value = valueOf(line, key);
    if (!value) continue;
    if (auto folder = resolved(*value, home, accept)) found = std::move(folder);
  }
  return found;
}

}  // namespace platform::xdg_user_dirs
