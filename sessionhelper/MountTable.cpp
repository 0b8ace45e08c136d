#include "sessionhelper/MountTable.h"

#include <algorithm>

namespace session_helper {
namespace {

bool isOctal(char character) {
  return character >= '0' && character <= '7';
}

// proc(5): mount id, parent id, device, root, mount point, options ... with one blank between. All
// other white space may be part of a name.
constexpr int kDeviceField = 2;
constexpr int kMountPointField = 4;

// Behind the options come some fields that may be missing, a hyphen, type, source and options.
constexpr int kNumberField = 0;
constexpr std::string_view kSeparator = " - ";
constexpr int kTypeField = 0;
constexpr int kSystemOptionsField = 2;

std::string fieldOf(std::string_view line, int field) {
  for (int i = 0; i < field; ++i) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string_view::npos) return {};
    line.remove_prefix(blank + 1);
  }
  return unescaped(line.substr(0, line.find(' ')));
}

}  // namespace

std::string unescaped(std::string_view field) {
  constexpr std::size_t kDigits = 3;
  std::string path;
  while (!field.empty()) {
    const std::string_view digits = field.substr(1, kDigits);
    if (field.front() == '\\' && digits.size() == kDigits && std::ranges::all_of(digits, isOctal)) {
      const int value = (digits[0] - '0') * 64 + (digits[1] - '0') * 8 + (digits[2] - '0');
      path += static_cast<char>(value);
      field.remove_prefix(1 + kDigits);
    } else {
      path += field.front();
      field.remove_prefix(1);
    }
  }
  return path;
}

bool isMountPoint(const std::string& path, std::istream& mountInfo) {
  for (std::string line; std::getline(mountInfo, line);) {
    if (!path.empty() && fieldOf(line, kMountPointField) == path) return true;
  }
  return false;
}

std::string deviceMountedAt(const std::string& path, std::istream& mountInfo) {
  std::string device;
  for (std::string line; std::getline(mountInfo, line);) {
    if (!path.empty() && fieldOf(line, kMountPointField) == path) {
      device = fieldOf(line, kDeviceField);
    }
  }
  return device;
}

std::optional<Mount> mountOf(std::uint64_t number, std::istream& mountInfo) {
  for (std::string line; std::getline(mountInfo, line);) {
    const std::size_t separator = line.find(kSeparator);
    if (separator == std::string::npos || fieldOf(line, kNumberField) != std::to_string(number)) {
      continue;
    }
    const std::string system = line.substr(separator + kSeparator.size());
    return Mount{fieldOf(line, kDeviceField), fieldOf(system, kTypeField),
                 fieldOf(system, kSystemOptionsField)};
  }
  return std::nullopt;
}

}  // namespace session_helper
