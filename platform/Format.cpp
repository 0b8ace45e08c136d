#include "platform/Format.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "platform/Text.h"
#include "platform/Utf8.h"

namespace platform {
namespace {

constexpr int kLongest = 4096;
constexpr std::string_view kNone = "(null)";

// What stands between a "%" and the letter that ends the directive.
struct Specification {
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
};

class Formatter {
 public:
  Formatter(std::string_view format, std::initializer_list<FormatArgument> arguments)
      : rest_(format), arguments_(arguments) {
    result_.reserve(format.size() + 64);
  }

  std::string run() {
    while (!rest_.empty()) {
      const std::size_t percent = std::min(rest_.find('%'), rest_.size());
      result_ += rest_.substr(0, percent);
      rest_.remove_prefix(percent);
      if (!rest_.empty()) directive();
    }
    return std::move(result_);
  }

 private:
  void directive() {
    const std::string_view whole = rest_;
    rest_.remove_prefix(1);
    Specification spec;
    readFlags(spec);
    readWidth(spec);
    readPrecision(spec);
    readLength(spec);
    if (rest_.empty()) return;
    spec.conversion = rest_.front();
    rest_.remove_prefix(1);
    if (!print(spec)) result_ += whole.substr(0, whole.size() - rest_.size());
  }

  bool take(char wanted) {
    if (!rest_.starts_with(wanted)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  void readFlags(Specification& spec) {
    while (true) {
      if (take('-')) {
        spec.leftAligned = true;
      } else if (take('+')) {
        spec.signAlways = true;
      } else if (take(' ')) {
        spec.signSpace = true;
      } else if (take('#')) {
        spec.alternate = true;
      } else if (take('0')) {
        spec.zeroPadded = true;
      } else if (!take('\'')) {  // groups digits, of which the C locale has none
        return;
      }
    }
  }

  void readWidth(Specification& spec) {
    const int width = take('*') ? nextLength() : readDigits();
    if (width < 0) spec.leftAligned = true;
    spec.width = std::abs(width);
  }

  void readPrecision(Specification& spec) {
    if (!take('.')) return;
    const int precision = take('*') ? nextLength() : readDigits();
    if (precision >= 0) spec.precision = precision;
  }

  int readDigits() {
    int number = 0;
    while (!rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9') {
      number = std::min(number * 10 + (rest_.front() - '0'), kLongest);
      rest_.remove_prefix(1);
    }
    return number;
  }

  // The argument of a "*"; what is no integer counts as 0.
  int nextLength() {
    const FormatArgument::Value argument = next();
    if (const auto* number = std::get_if<std::int64_t>(&argument)) {
      return static_cast<int>(std::clamp<std::int64_t>(*number, -kLongest, kLongest));
    }
    if (const auto* number = std::get_if<std::uint64_t>(&argument)) {
      return static_cast<int>(std::min<std::uint64_t>(*number, kLongest));
    }
    return 0;
  }

  void readLength(Specification& spec) {
    if (take('h')) {
      spec.bits = take('h') ? 8 : 16;
    } else if (take('l')) {
      take('l');
      spec.bits = 64;
    } else if (take('L') || take('q') || take('z') || take('t') || take('j')) {
      spec.bits = 64;
    }
  }

  FormatArgument::Value next() {
    if (used_ == arguments_.size()) return {};
    return (arguments_.begin() + used_++)->value();
  }

  // Answers whether the conversion is known.
  bool print(const Specification& spec) {
    switch (spec.conversion) {
      case '%':
        result_ += '%';
        return true;
      case 'n':
        return true;
      case '@':
      case 's':
      case 'c':
      case 'd':
      case 'i':
      case 'u':
      case 'x':
      case 'X':
      case 'o':
      case 'p':
      case 'f':
      case 'F':
      case 'e':
      case 'E':
      case 'g':
      case 'G':
        printArgument(spec, next());
        return true;
      default:
        return false;
    }
  }

  static bool isText(char conversion) { return conversion == '@' || conversion == 's'; }

  void printArgument(const Specification& spec, const FormatArgument::Value& argument) {
    if (const auto* text = std::get_if<std::string_view>(&argument)) {
      printText(spec, *text);
    } else if (const auto* number = std::get_if<double>(&argument)) {
      printDouble(spec, *number);
    } else if (const auto* integer = std::get_if<std::int64_t>(&argument)) {
      printInteger(spec, *integer < 0, static_cast<std::uint64_t>(*integer));
    } else if (const auto* whole = std::get_if<std::uint64_t>(&argument)) {
      printInteger(spec, false, *whole);
    } else if (isText(spec.conversion)) {
      printText(spec, kNone);
    } else if (spec.conversion != 'c') {
      isFloatingPoint(spec.conversion) ? printDouble(spec, 0) : printInteger(spec, false, 0);
    }
  }

  void printText(const Specification& spec, std::string_view text) {
    if (isText(spec.conversion) && spec.precision) text = beginning(text, *spec.precision);
    if (spec.width == 0) {
      result_ += text;
    } else {
      pad(spec, text, static_cast<int>(std::min<std::size_t>(text::utf16Length(text), kLongest)));
    }
  }

  // As many whole characters as fit into `units`.
  static std::string_view beginning(std::string_view text, int units) {
    std::string_view rest = text;
    while (!rest.empty()) {
      const utf8::Character character = utf8::first(rest);
      units -= character.length == 4 ? 2 : 1;
      if (units < 0) break;
      rest.remove_prefix(character.length);
    }
    return text.substr(0, text.size() - rest.size());
  }

  void pad(const Specification& spec, std::string_view text, int length) {
    const auto missing = static_cast<std::size_t>(std::max(spec.width - length, 0));
    if (!spec.leftAligned) result_.append(missing, ' ');
    result_ += text;
    if (spec.leftAligned) result_.append(missing, ' ');
  }

  // `number` is the two's complement of a negative one.
  void printInteger(const Specification& spec, bool negative, std::uint64_t number) {
    switch (spec.conversion) {
      case 'c':
        printCharacter(spec, negative ? utf8::kInvalid : number);
        break;
      case 'u':
        printUnsigned(spec, 10, cut(spec, negative, number), "");
        break;
      case 'o':
        printUnsigned(spec, 8, cut(spec, negative, number), spec.alternate ? "0" : "");
        break;
      case 'x':
      case 'X':
        printUnsigned(spec, 16, cut(spec, negative, number),
                      spec.alternate && number != 0 ? "0x" : "");
        break;
      case 'p':
        printUnsigned(spec, 16, number, "0x");
        break;
      default:
        printDigits(spec, sign(spec, negative), digits(10, negative ? 0 - number : number),
                    isText(spec.conversion) || isFloatingPoint(spec.conversion));
        break;
    }
  }

  void printCharacter(const Specification& spec, std::uint64_t number) {
    std::string character;
    utf8::append(character, static_cast<char32_t>(std::min<std::uint64_t>(number, utf8::kInvalid)));
    pad(spec, character, number > 0xFFFF && number <= 0x10FFFF ? 2 : 1);
  }

  static std::uint64_t cut(const Specification& spec, bool negative, std::uint64_t number) {
    if (!negative) return number;
    if (spec.bits == 8) return number & std::numeric_limits<std::uint8_t>::max();
    if (spec.bits == 16) return number & std::numeric_limits<std::uint16_t>::max();
    const bool fitsInt = 0 - number <= std::uint64_t{1} << 31;
    if (spec.bits == 0 && fitsInt) return number & std::numeric_limits<std::uint32_t>::max();
    return number;
  }

  static bool isFloatingPoint(char conversion) {
    return std::string_view("fFeEgG").find(conversion) != std::string_view::npos;
  }

  static std::string_view sign(const Specification& spec, bool negative) {
    if (negative) return "-";
    if (spec.signAlways) return "+";
    return spec.signSpace ? " " : "";
  }

  static std::string digits(int base, std::uint64_t number) {
    std::array<char, 64> buffer;
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number, base).ptr;
    return {buffer.data(), end};
  }

  void printUnsigned(const Specification& spec, int base, std::uint64_t number,
                     std::string_view prefix) {
    std::string text = digits(base, number);
    if (prefix == "0") return printOctalWithZero(spec, std::move(text));
    if (spec.conversion != 'X') return printDigits(spec, prefix, std::move(text), false);
    upperCase(text);
    printDigits(spec, prefix.empty() ? "" : "0X", std::move(text), false);
  }

  // Octal's alternate form is no prefix but one more digit, unless there is a zero already.
  void printOctalWithZero(Specification spec, std::string text) {
    if (text.front() != '0') text.insert(0, "0");
    if (spec.precision) spec.precision = std::max(*spec.precision, 1);
    printDigits(spec, "", std::move(text), false);
  }

  static void upperCase(std::string& text) {
    for (char& letter : text) {
      if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
    }
  }

  // Digits behind a sign or prefix, with the zeros that precision and width ask for. `asIs` prints
  // an integer under a directive for something else, whose precision means something else.
  void printDigits(const Specification& spec, std::string_view prefix, std::string text,
                   bool asIs) {
    std::size_t least = asIs ? 1 : static_cast<std::size_t>(spec.precision.value_or(1));
    if (!asIs && spec.precision == 0 && text == "0") text.clear();
    if (spec.zeroPadded && !spec.leftAligned && (asIs || !spec.precision)) {
      const auto width = static_cast<std::size_t>(spec.width);
      least = std::max(least, width - std::min(width, prefix.size()));
    }
    if (text.size() < least) text.insert(0, least - text.size(), '0');
    text.insert(0, prefix);
    pad(spec, text, static_cast<int>(text.size()));
  }

  void printDouble(const Specification& spec, double number) {
    std::string text = isFloatingPoint(spec.conversion) ? floatingPoint(spec, std::abs(number))
                                                        : shortest(std::abs(number));
    Specification padding = spec;
    padding.zeroPadded = spec.zeroPadded && std::isfinite(number);
    printDigits(padding, sign(spec, std::signbit(number)), std::move(text), true);
  }

  static std::string shortest(double number) {
    std::array<char, 32> buffer;
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
    return {buffer.data(), end};
  }

  static std::string floatingPoint(const Specification& spec, double number) {
    const int precision = spec.precision.value_or(6);
    const std::chars_format form = notation(spec.conversion);
    std::string text = form == std::chars_format::general && spec.alternate
                           ? generalWithZeros(number, std::max(precision, 1))
                           : digits(form, number, precision);
    if (spec.alternate && std::isfinite(number)) insertPoint(text);
    if (spec.conversion < 'a') upperCase(text);
    return text;
  }

  static std::chars_format notation(char conversion) {
    if (conversion == 'f' || conversion == 'F') return std::chars_format::fixed;
    if (conversion == 'e' || conversion == 'E') return std::chars_format::scientific;
    return std::chars_format::general;
  }

  static std::string digits(std::chars_format form, double number, int precision) {
    // The largest double has 309 digits before its point.
    std::array<char, kLongest + 400> buffer;
    char* const begin = buffer.data();
    return {begin, std::to_chars(begin, begin + buffer.size(), number, form, precision).ptr};
  }

  // The general notation as C defines it, by the exponent; the alternate form drops no zeros.
  static std::string generalWithZeros(double number, int significant) {
    std::string text = digits(std::chars_format::scientific, number, significant - 1);
    if (!std::isfinite(number)) return text;
    const int exponent = std::stoi(text.substr(text.find('e') + 1));
    if (exponent < -4 || exponent >= significant) return text;
    return digits(std::chars_format::fixed, number, significant - 1 - exponent);
  }

  static void insertPoint(std::string& text) {
    if (text.find('.') != std::string::npos) return;
    text.insert(std::min(text.find('e'), text.size()), ".");
  }

  std::string_view rest_;
  std::initializer_list<FormatArgument> arguments_;
  std::size_t used_ = 0;
  std::string result_;
};

}  // namespace

std::string formatArguments(std::string_view format,
                            std::initializer_list<FormatArgument> arguments) {
  return Formatter(format, arguments).run();
}

}  // namespace platform
