#include "posix/Escaped.h"

#include <cstddef>

namespace posix {
namespace {

constexpr std::size_t kLongest = 512;

bool isPlain(char character) {
  return character >= ' ' && character <= '~' && character != '\\';
}

}  // namespace

std::string escaped(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string result;
  for (const char character : text.substr(0, kLongest)) {
    const auto byte = static_cast<unsigned char>(character);
    if (isPlain(character)) {
      result += character;
    } else {
      result.append("\\x").append(1, kDigits[byte >> 4U]).append(1, kDigits[byte & 15U]);
    }
  }
  return text.size() > kLongest ? result + "..." : result;
}

}  // namespace posix
