#include "platform/Text.h"

#include "platform/Utf8.h"

namespace platform::text {
namespace {

bool isAscii(char byte) noexcept {
  return static_cast<unsigned char>(byte) < 0x80;
}

// Unicode 15: general category Z, and the control characters that count as white space.
bool isWhiteSpaceOrNewline(char32_t codePoint) noexcept {
  if (codePoint < 0x80) return codePoint == ' ' || (codePoint >= 0x09 && codePoint <= 0x0D);
  if (codePoint >= 0x2000 && codePoint <= 0x200A) return true;
  switch (codePoint) {
    case 0x0085:
    case 0x00A0:
    case 0x1680:
    case 0x2028:
    case 0x2029:
    case 0x202F:
    case 0x205F:
    case 0x3000:
      return true;
    default:
      return false;
  }
}

}  // namespace

std::size_t utf16Length(std::string_view text) noexcept {
  std::size_t units = 0;
  for (std::size_t at = 0; at < text.size();) {
    if (isAscii(text[at])) {
      ++at;
      ++units;
      continue;
    }
    const utf8::Character character = utf8::first(text.substr(at));
    at += character.length;
    units += character.length == 4 ? 2 : 1;
  }
  return units;
}

std::string_view trimmed(std::string_view text) noexcept {
  while (!text.empty()) {
    const utf8::Character character = utf8::first(text);
    if (!isWhiteSpaceOrNewline(character.codePoint)) break;
    text.remove_prefix(character.length);
  }
  while (!text.empty()) {
    const utf8::Character character = utf8::last(text);
    if (!isWhiteSpaceOrNewline(character.codePoint)) break;
    text.remove_suffix(character.length);
  }
  return text;
}

std::string validUtf8(std::string_view text) {
  std::string valid;
  valid.reserve(text.size());
  while (!text.empty()) {
    const utf8::Character character = utf8::first(text);
    if (character.codePoint == utf8::kInvalid) {
      utf8::append(valid, utf8::kInvalid);
    } else {
      valid += text.substr(0, character.length);
    }
    text.remove_prefix(character.length);
  }
  return valid;
}

}  // namespace platform::text
