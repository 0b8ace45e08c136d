#include "followup/MountTable.h"

#include <algorithm>
#include <sstream>

namespace followup {
namespace {

bool isOctal(char character) {
  return character >= '0' && character <= '7';
}

// proc(5): mount id, parent id, device, root, mount point, options ...
std::string mountPointOf(const std::string& line) {
  std::istringstream fields(line);
  std::string field;
  for (int i = 0; i < 5; ++i) fields >> field;
  return fields ? unescaped(field) : std::string();
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
    if (!path.empty() && mountPointOf(line) == path) return true;
  }
  return false;
}

}  // namespace followup
