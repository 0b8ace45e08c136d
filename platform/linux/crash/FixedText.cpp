#include "platform/linux/crash/FixedText.h"

#include <algorithm>
#include <charconv>

namespace platform::crash {
namespace {

constexpr int kDecimal = 10;
constexpr int kHexadecimal = 16;
constexpr std::string_view kDigits = "0123456789abcdef";
constexpr std::string_view kZeros = "0000000000000000";

template <class Number>
FixedText& addNumber(FixedText& text, Number number, int base, std::size_t digits) noexcept {
  std::array<char, 24> buffer{};
  const char* end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number, base).ptr;
  const auto size = static_cast<std::size_t>(end - buffer.data());
  if (digits > size) text.add(kZeros.substr(0, digits - size));
  return text.add({buffer.data(), size});
}

}  // namespace

// One byte stays for the end that C asks for.
FixedText& FixedText::add(std::string_view text) noexcept {
  const std::size_t count = std::min(text.size(), characters_.size() - 1 - size_);
  std::copy_n(text.data(), count, characters_.data() + size_);
  size_ += count;
  return *this;
}

FixedText& FixedText::addDecimal(std::int64_t number, std::size_t digits) noexcept {
  return addNumber(*this, number, kDecimal, digits);
}

FixedText& FixedText::addHexadecimal(std::uint64_t number, std::size_t digits) noexcept {
  return addNumber(add("0x"), number, kHexadecimal, digits);
}

FixedText& FixedText::addBytes(const unsigned char* bytes, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    add(kDigits.substr(bytes[i] >> 4U, 1)).add(kDigits.substr(bytes[i] & 0xFU, 1));
  }
  return *this;
}

FixedText& FixedText::padTo(std::size_t width) noexcept {
  while (size_ < std::min(width, characters_.size() - 1)) add(" ");
  return *this;
}

}  // namespace platform::crash
