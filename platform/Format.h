#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace platform {

// One argument of a format: a text (or none), an integer or a floating-point number. It keeps only
// a view of a text, so it must not outlive the full expression that made it.
class FormatArgument {
 public:
  FormatArgument(std::nullopt_t) {}   // NOLINT(google-explicit-constructor)
  FormatArgument(const char* text) {  // NOLINT(google-explicit-constructor)
    if (text != nullptr) value_ = std::string_view(text);
  }
  FormatArgument(std::string_view text) : value_(text) {}  // NOLINT(google-explicit-constructor)
  FormatArgument(const std::string& text)                  // NOLINT(google-explicit-constructor)
      : value_(std::string_view(text)) {}
  FormatArgument(const std::optional<std::string>& text) {  // NOLINT(google-explicit-constructor)
    if (text) value_ = std::string_view(*text);
  }
  template <std::signed_integral T>
  FormatArgument(T number)  // NOLINT(google-explicit-constructor)
      : value_(static_cast<std::int64_t>(number)) {}
  template <std::unsigned_integral T>
  FormatArgument(T number)  // NOLINT(google-explicit-constructor)
      : value_(static_cast<std::uint64_t>(number)) {}
  FormatArgument(double number) : value_(number) {}  // NOLINT(google-explicit-constructor)

  using Value = std::variant<std::monostate, std::string_view, std::int64_t, std::uint64_t, double>;
  // monostate is none.
  const Value& value() const noexcept { return value_; }

 private:
  Value value_;
};

// Fills a printf-style format, UTF-8, in the manner of printf(3) extended by the object placeholder
// "%@". Directives: %@ %s (text), %d %i %u %x %X %o %c (integers, with any of the length modifiers
// h hh l ll L q z t j), %f %F %e %E %g %G (floating point), %p, %%; flags, width and precision as
// in printf(3), "*" included. A text's width and precision count UTF-16 code units and never cut a
// character in two; %c is a character by its Unicode number.
//
// Arguments are typed and checked, so any format is safe: a directive without an argument, or with
// none, prints "(null)" for a text, 0 for a number and nothing for a character; an argument of
// another type is printed as what it is. Length modifiers matter only to a negative number under
// %u %x %X %o, whose two's complement they cut. %n stores nothing, prints nothing and uses up no
// argument. An unknown directive is copied as it stands; a "%" that nothing completes prints
// nothing. Widths and precisions above 4096 count as 4096. Numbers are printed in the C locale
// whatever the process's locale says. Bytes that are not UTF-8 pass through unchanged. Thread-safe;
// never throws but for lack of memory.
std::string formatArguments(std::string_view format,
                            std::initializer_list<FormatArgument> arguments);

// The same with the arguments written out: formatted("Silent: %i", 1).
template <class... Arguments>
std::string formatted(std::string_view format, const Arguments&... arguments) {
  return formatArguments(format, {FormatArgument(arguments)...});
}

}  // namespace platform
