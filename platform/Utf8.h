#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The one reading of UTF-8 (RFC 3629) that every function on texts shares.
namespace platform::utf8 {

inline constexpr char32_t kInvalid = 0xFFFFFFFF;

struct Character {
  // The code point, or kInvalid for a byte that begins no valid sequence.
  char32_t codePoint;
  // Bytes that it takes, 1 to 4; an invalid byte takes one.
  std::size_t length;
};

// Whether the byte goes on a character that another byte has begun.
constexpr bool isContinuation(char byte) noexcept {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// The character at the beginning of `text`, which must not be empty.
Character first(std::string_view text) noexcept;

// The character at the end of `text`, which must not be empty.
Character last(std::string_view text) noexcept;

// Appends a code point; one that has no encoding becomes U+FFFD.
void append(std::string& text, char32_t codePoint);

}  // namespace platform::utf8
