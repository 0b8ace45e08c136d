#pragma once

#include <optional>
#include <string_view>

namespace platform {

// Widths and precisions above this count as this.
inline constexpr int kLongestFormatField = 4096;

// What stands between a "%" and the letter that ends a directive, and that letter.
struct FormatDirective {
  bool leftAligned = false;
  bool signAlways = false;
  bool signSpace = false;
  bool alternate = false;
  bool zeroPadded = false;
  int width = 0;
  std::optional<int> precision;
  // The bits of the integer type that the length modifier names; 0 without a modifier.
  int bits = 0;
  char conversion = '\0';

  bool isText() const noexcept { return conversion == '@' || conversion == 's'; }
  bool isFloatingPoint() const noexcept {
    return std::string_view("fFeEgG").find(conversion) != std::string_view::npos;
  }
  bool isUpperCase() const noexcept { return conversion >= 'A' && conversion <= 'Z'; }
};

}  // namespace platform
