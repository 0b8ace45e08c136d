#include "platform/Utf8.h"

#include <algorithm>

namespace platform::utf8 {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

constexpr unsigned char byteAt(std::string_view text, std::size_t index) noexcept {
  return static_cast<unsigned char>(text[index]);
}

constexpr bool isScalarValue(char32_t codePoint) noexcept {
  return codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF);
}

// The bytes that a sequence with this first byte takes; 0 when it can begin none.
constexpr std::size_t sequenceLength(unsigned char lead) noexcept {
  if (lead < 0x80) return 1;
  if (lead < 0xC2) return 0;
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  return lead < 0xF5 ? 4 : 0;
}

constexpr bool isOverlong(char32_t codePoint, std::size_t length) noexcept {
  return (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000);
}

}  // namespace

Character first(std::string_view text) noexcept {
  constexpr Character kInvalidByte{kInvalid, 1};
  const unsigned char lead = byteAt(text, 0);
  const std::size_t length = sequenceLength(lead);
  if (length == 1) return {lead, 1};
  if (length == 0 || text.size() < length) return kInvalidByte;

  char32_t codePoint = lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if (!isContinuation(text[i])) return kInvalidByte;
    codePoint = codePoint << 6 | (byteAt(text, i) & 0x3FU);
  }
  if (isOverlong(codePoint, length) || !isScalarValue(codePoint)) return kInvalidByte;
  return {codePoint, length};
}

Character last(std::string_view text) noexcept {
  const std::size_t longest = std::min<std::size_t>(text.size(), 4);
  for (std::size_t length = 1; length <= longest; ++length) {
    const std::string_view tail = text.substr(text.size() - length);
    if (isContinuation(tail.front())) continue;
    const Character character = first(tail);
    if (character.length == length) return character;
    break;
  }
  return {kInvalid, 1};
}

void append(std::string& text, char32_t codePoint) {
  if (!isScalarValue(codePoint)) codePoint = kReplacement;
  const auto continuation = [codePoint](unsigned shift) {
    return static_cast<char>(0x80 | ((codePoint >> shift) & 0x3F));
  };
  if (codePoint < 0x80) {
    text += static_cast<char>(codePoint);
  } else if (codePoint < 0x800) {
    text += {static_cast<char>(0xC0 | (codePoint >> 6)), continuation(0)};
  } else if (codePoint < 0x10000) {
    text += {static_cast<char>(0xE0 | (codePoint >> 12)), continuation(6), continuation(0)};
  } else {
    text += {static_cast<char>(0xF0 | (codePoint >> 18)), continuation(12), continuation(6),
             continuation(0)};
  }
}

}  // namespace platform::utf8
