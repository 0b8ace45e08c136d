#include "platform/Wildcard.h"

#include <algorithm>
#include <cstddef>

#include "platform/Utf8.h"

namespace platform {
namespace {

// The bytes of the first character of a text that is not empty.
std::size_t characterLength(std::string_view text) noexcept {
  const bool isAscii = static_cast<unsigned char>(text.front()) < 0x80;
  return isAscii ? 1 : utf8::first(text).length;
}

// How far to go at least until a text can go on as `pattern`, which follows a star.
std::size_t distanceToFirst(std::string_view pattern, std::string_view text) noexcept {
  // What continues a character may also be found inside of one, where no star ends.
  const bool canBeSearched = !pattern.empty() && pattern.front() != '*' && pattern.front() != '?' &&
                             !utf8::isContinuation(pattern.front());
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
