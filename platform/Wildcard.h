#pragma once

#include <string_view>

namespace platform {

// Whether `text` is like `pattern`: "*" stands for any run of characters, none included, "?" for
// exactly one; every other character, "[" and "\" included, stands for itself. Case counts, and a
// dot at the beginning is a character like any other. A character is a Unicode character, a byte
// that is not valid UTF-8 counts as one. Takes time in proportion to the product of the lengths at
// most. Thread-safe.
bool isLike(std::string_view text, std::string_view pattern) noexcept;

}  // namespace platform
