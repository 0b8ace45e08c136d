#include "platform/Wildcard.h"

#include <algorithm>
#include <cstddef>

namespace platform {
namespace {

std::size_t lengthByLeadByte(unsigned char lead) noexcept {
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 1;
}

bool isContinuation(char byte) noexcept {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// The bytes of the first character of a text that is not empty.
std::size_t characterLength(std::string_view text) noexcept {
  const std::size_t length = lengthByLeadByte(static_cast<unsigned char>(text.front()));
  if (length > text.size()) return 1;
  for (const char byte : text.substr(1, length - 1)) {
    if (!isContinuation(byte)) return 1;
  }
  return length;
}

// How far to go at least until a text can go on as `pattern`, which follows a star.
std::size_t distanceToFirst(std::string_view pattern, std::string_view text) noexcept {
  // What continues a character may also be found inside of one, where no star ends.
  const bool canBeSearched = !pattern.empty() && pattern.front() != '*' && pattern.front() != '?' &&
                             !isContinuation(pattern.front());
  return canBeSearched ? std::min(text.find(pattern.front()), text.size()) : 0;
}

}  // namespace

bool isLike(std::string_view text, std::string_view pattern) noexcept {
  // Where to go on when what follows the last star does not fit: one character further on.
  std::string_view retryText;
  std::string_view retryPattern;
  bool mayRetry = false;
  while (!text.empty() || !pattern.empty()) {
    if (!pattern.empty() && pattern.front() == '*') {
      pattern.remove_prefix(1);
      if (pattern.empty()) return true;
      text.remove_prefix(distanceToFirst(pattern, text));
      retryText = text;
      retryPattern = pattern;
      mayRetry = true;
    } else if (!pattern.empty() && !text.empty() &&
               (pattern.front() == '?' || pattern.front() == text.front())) {
      text.remove_prefix(pattern.front() == '?' ? characterLength(text) : 1);
      pattern.remove_prefix(1);
    } else if (mayRetry && !retryText.empty()) {
      retryText.remove_prefix(characterLength(retryText));
      retryText.remove_prefix(distanceToFirst(retryPattern, retryText));
      text = retryText;
      pattern = retryPattern;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace platform
