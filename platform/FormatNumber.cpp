#include "platform/FormatNumber.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string_view>
#include <utility>

namespace platform {
namespace {

// The largest double has 309 digits before its point.
constexpr std::size_t kLongestDouble = kLongestFormatField + 400;

template <std::size_t kSize, class... Arguments>
std::string toChars(Arguments... arguments) {
  std::array<char, kSize> buffer;
  char* const begin = buffer.data();
  return {begin, std::to_chars(begin, begin + kSize, arguments...).ptr};
}

void upperCase(std::string& text) {
  for (char& letter : text) {
    if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  }
}

std::string_view sign(const FormatDirective& directive, bool negative) {
  if (negative) return "-";
  if (directive.signAlways) return "+";
  return directive.signSpace ? " " : "";
}

// Puts `prefix` before the digits, and between them as many zeros as are missing to the width, if
// the directive pads with zeros.
std::string padded(const FormatDirective& directive, std::string_view prefix, std::string digits,
                   bool padsWithZeros) {
  if (padsWithZeros && directive.zeroPadded && !directive.leftAligned) {
    const auto width = static_cast<std::size_t>(directive.width);
    const std::size_t present = prefix.size() + digits.size();
    if (present < width) digits.insert(0, width - present, '0');
  }
  return digits.insert(0, prefix);
}

// An integer's digits, at least as many as the precision says, which also switches off padding.
std::string integerField(const FormatDirective& directive, std::string_view prefix,
                         std::string digits) {
  if (!directive.precision) return padded(directive, prefix, std::move(digits), true);
  if (*directive.precision == 0 && digits == "0") digits.clear();
  const auto least = static_cast<std::size_t>(*directive.precision);
  if (digits.size() < least) digits.insert(0, least - digits.size(), '0');
  return padded(directive, prefix, std::move(digits), false);
}

// The alternate form is no prefix but one more digit, unless there is a zero already.
std::string octalField(FormatDirective directive, std::uint64_t number) {
  std::string digits = toChars<64>(number, 8);
  if (directive.alternate && digits.front() != '0') digits.insert(0, "0");
  if (directive.alternate && directive.precision == 0) directive.precision = 1;
  return integerField(directive, "", std::move(digits));
}

std::string hexadecimalField(const FormatDirective& directive, std::uint64_t number,
                             bool withPrefix) {
  std::string field = integerField(directive, withPrefix ? "0x" : "", toChars<64>(number, 16));
  if (directive.isUpperCase()) upperCase(field);
  return field;
}

// A negative number under a directive for unsigned ones is cut to the type that is named, or to
// the smaller of int and long that holds it.
std::uint64_t cut(const FormatDirective& directive, bool negative, std::uint64_t number) {
  if (!negative) return number;
  if (directive.bits == 8) return number & std::numeric_limits<std::uint8_t>::max();
  if (directive.bits == 16) return number & std::numeric_limits<std::uint16_t>::max();
  const bool fitsInt = 0 - number <= std::uint64_t{1} << 31;
  if (directive.bits == 0 && fitsInt) return number & std::numeric_limits<std::uint32_t>::max();
  return number;
}

std::chars_format notation(char conversion) {
  if (conversion == 'f' || conversion == 'F') return std::chars_format::fixed;
  if (conversion == 'e' || conversion == 'E') return std::chars_format::scientific;
  return std::chars_format::general;
}

std::string digitsOf(double number, std::chars_format form, int precision) {
  return toChars<kLongestDouble>(number, form, precision);
}

// The general notation as C defines it, by the exponent; its alternate form drops no zeros.
std::string generalWithZeros(double number, int significant) {
  std::string digits = digitsOf(number, std::chars_format::scientific, significant - 1);
  if (!std::isfinite(number)) return digits;
  const int exponent = std::stoi(digits.substr(digits.find('e') + 1));
  if (exponent < -4 || exponent >= significant) return digits;
  return digitsOf(number, std::chars_format::fixed, significant - 1 - exponent);
}

void insertPoint(std::string& digits) {
  if (digits.find('.') != std::string::npos) return;
  digits.insert(std::min(digits.find('e'), digits.size()), ".");
}

std::string floatingPointDigits(const FormatDirective& directive, double number) {
  const int precision = directive.precision.value_or(6);
  const std::chars_format form = notation(directive.conversion);
  std::string digits = form == std::chars_format::general && directive.alternate
                           ? generalWithZeros(number, std::max(precision, 1))
                           : digitsOf(number, form, precision);
  if (directive.alternate && std::isfinite(number)) insertPoint(digits);
  if (directive.isUpperCase()) upperCase(digits);
  return digits;
}

}  // namespace

std::string formatInteger(const FormatDirective& directive, bool negative, std::uint64_t number) {
  switch (directive.conversion) {
    case 'd':
    case 'i':
      return integerField(directive, sign(directive, negative),
                          toChars<64>(negative ? 0 - number : number, 10));
    case 'u':
      return integerField(directive, "", toChars<64>(cut(directive, negative, number), 10));
    case 'o':
      return octalField(directive, cut(directive, negative, number));
    case 'x':
    case 'X':
      return hexadecimalField(directive, cut(directive, negative, number),
                              directive.alternate && number != 0);
    case 'p':
      return hexadecimalField(directive, number, true);
    default:
      return padded(directive, sign(directive, negative),
                    toChars<64>(negative ? 0 - number : number, 10), true);
  }
}

std::string formatDouble(const FormatDirective& directive, double number) {
  const double magnitude = std::abs(number);
  std::string digits = directive.isFloatingPoint() ? floatingPointDigits(directive, magnitude)
                                                   : toChars<32>(magnitude);
  return padded(directive, sign(directive, std::signbit(number)), std::move(digits),
                std::isfinite(number));
}

}  // namespace platform
