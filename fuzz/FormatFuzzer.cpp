#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/Format.h"
#include "platform/Text.h"

// The input is a format, a zero byte and what the arguments are made of. The argument types are
// fixed, so that every directive meets arguments that it was not made for.
namespace {

// No directive prints more than two numbers of the greatest width allow.
constexpr std::size_t kLongestDirective = 2 * 4096 + 512;

void check(bool holds) {
  if (!holds) std::abort();
}

template <class Number>
Number numberFrom(std::string_view bytes) {
  Number number{};
  std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
  return number;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using platform::formatted;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string_view format = input.substr(0, input.find('\0'));
  const std::string_view rest =
      format.size() == input.size() ? "" : input.substr(format.size() + 1);

  const std::string once =
      formatted(format, numberFrom<std::int64_t>(rest), rest, numberFrom<double>(rest),
                numberFrom<std::uint64_t>(rest), numberFrom<int>(rest));
  check(once.size() <= format.size() * (kLongestDirective + rest.size()));
  if (format.find('%') == std::string_view::npos) check(once == format);
  if (format.size() < 256) check(formatted("%@", format) == format);

  // As a reason that is logged, the result serves as a format again.
  const std::string twice = formatted(once.substr(0, 4096));
  static_cast<void>(platform::text::trimmed(twice));
  static_cast<void>(platform::text::utf16Length(twice));
  static_cast<void>(platform::text::lowercased(twice.substr(0, 4096)));
  check(platform::text::hasPrefixIgnoringCase(format, format));
  return 0;
}
