#include "platform/Format.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "platform/FormatDirective.h"
#include "platform/FormatNumber.h"
#include "platform/Text.h"
#include "platform/Utf8.h"

namespace platform {
namespace {

constexpr std::string_view kNone = "(null)";
constexpr std::string_view kConversions = "@sdiuxXocpfFeEgG";
constexpr std::string_view kLongModifiers = "Lqztj";

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
      if (!rest_.empty()) nextDirective();
    }
    return std::move(result_);
  }

 private:
  void nextDirective() {
    const std::string_view whole = rest_;
    rest_.remove_prefix(1);
    FormatDirective directive;
    readFlags(directive);
    readWidth(directive);
    readPrecision(directive);
    readLength(directive);
    if (rest_.empty()) return;
    directive.conversion = rest_.front();
    rest_.remove_prefix(1);
    if (!print(directive)) result_ += whole.substr(0, whole.size() - rest_.size());
  }

  bool take(char wanted) {
    if (!rest_.starts_with(wanted)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  void readFlags(FormatDirective& directive) {
    while (true) {
      if (take('-')) {
        directive.leftAligned = true;
      } else if (take('+')) {
        directive.signAlways = true;
      } else if (take(' ')) {
        directive.signSpace = true;
      } else if (take('#')) {
        directive.alternate = true;
      } else if (take('0')) {
        directive.zeroPadded = true;
      } else if (!take('\'')) {  // groups digits, which the C locale does not
        return;
      }
    }
  }

  void readWidth(FormatDirective& directive) {
    const int width = take('*') ? nextLength() : readDigits();
    if (width < 0) directive.leftAligned = true;
    directive.width = std::abs(width);
  }

  void readPrecision(FormatDirective& directive) {
    if (!take('.')) return;
    const int precision = take('*') ? nextLength() : readDigits();
    if (precision >= 0) directive.precision = precision;
  }

  int readDigits() {
    int number = 0;
    while (!rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9') {
      number = std::min(number * 10 + (rest_.front() - '0'), kLongestFormatField);
      rest_.remove_prefix(1);
    }
    return number;
  }

  // The argument of a "*"; what is no integer counts as 0.
  int nextLength() {
    const FormatArgument::Value argument = nextArgument();
    constexpr std::int64_t kLongest = kLongestFormatField;
    if (const auto* number = std::get_if<std::int64_t>(&argument)) {
      return static_cast<int>(std::clamp(*number, -kLongest, kLongest));
    }
    if (const auto* number = std::get_if<std::uint64_t>(&argument)) {
      return static_cast<int>(std::min<std::uint64_t>(*number, kLongest));
    }
    return 0;
  }

  void readLength(FormatDirective& directive) {
    if (take('h')) {
      directive.bits = take('h') ? 8 : 16;
    } else if (take('l')) {
      take('l');
      directive.bits = 64;
    } else if (!rest_.empty() && kLongModifiers.find(rest_.front()) != std::string_view::npos) {
      rest_.remove_prefix(1);
      directive.bits = 64;
    }
  }

  FormatArgument::Value nextArgument() {
    if (used_ == arguments_.size()) return {};
    return (arguments_.begin() + used_++)->value();
  }

  // Answers whether the conversion is known.
  bool print(const FormatDirective& directive) {
    if (directive.conversion == '%') {
      result_ += '%';
    } else if (kConversions.find(directive.conversion) != std::string_view::npos) {
      printArgument(directive, nextArgument());
    } else {
      return directive.conversion == 'n';
    }
    return true;
  }

  void printArgument(const FormatDirective& directive, const FormatArgument::Value& argument) {
    if (const auto* text = std::get_if<std::string_view>(&argument)) {
      printText(directive, *text);
    } else if (const auto* real = std::get_if<double>(&argument)) {
      pad(directive, formatDouble(directive, *real));
    } else if (const auto* number = std::get_if<std::int64_t>(&argument)) {
      printInteger(directive, *number < 0, static_cast<std::uint64_t>(*number));
    } else if (const auto* whole = std::get_if<std::uint64_t>(&argument)) {
      printInteger(directive, false, *whole);
    } else {
      printNone(directive);
    }
  }

  void printNone(const FormatDirective& directive) {
    if (directive.isText()) {
      printText(directive, kNone);
    } else if (directive.isFloatingPoint()) {
      pad(directive, formatDouble(directive, 0));
    } else {
      pad(directive, directive.conversion == 'c' ? "" : formatInteger(directive, false, 0));
    }
  }

  void printText(const FormatDirective& directive, std::string_view text) {
    const bool isCut = directive.isText() && directive.precision;
    pad(directive, isCut ? beginning(text, *directive.precision) : text);
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

  // `number` is the two's complement of a negative one.
  void printInteger(const FormatDirective& directive, bool negative, std::uint64_t number) {
    if (directive.conversion != 'c') {
      pad(directive, formatInteger(directive, negative, number));
      return;
    }
    const auto codePoint =
        std::min<std::uint64_t>(negative ? utf8::kInvalid : number, utf8::kInvalid);
    std::string character;
    utf8::append(character, static_cast<char32_t>(codePoint));
    pad(directive, character);
  }

  // Prints a field with the spaces that are missing to the width.
  void pad(const FormatDirective& directive, std::string_view field) {
    const auto width = static_cast<std::size_t>(directive.width);
    const std::size_t length = width == 0 ? 0 : text::utf16Length(field);
    const std::size_t missing = width - std::min(width, length);
    if (!directive.leftAligned) result_.append(missing, ' ');
    result_ += field;
    if (directive.leftAligned) result_.append(missing, ' ');
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
