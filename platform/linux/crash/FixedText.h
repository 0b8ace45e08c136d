#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace platform::crash {

// A text that is put together without memory of its own; what does not fit is cut off. Safe in a
// signal handler.
class FixedText {
 public:
  FixedText& add(std::string_view text) noexcept;
  // With zeros in front up to `digits`.
  FixedText& addDecimal(std::int64_t number, std::size_t digits = 1) noexcept;
  // As in "0x1f"; with zeros in front up to `digits`.
  FixedText& addHexadecimal(std::uint64_t number, std::size_t digits = 1) noexcept;
  // The two digits of each byte, without a prefix.
  FixedText& addBytes(const unsigned char* bytes, std::size_t count) noexcept;
  // With blanks behind, until the whole has `width` characters.
  FixedText& padTo(std::size_t width) noexcept;

  std::string_view view() const noexcept { return {characters_.data(), size_}; }
  const char* c_str() const noexcept { return characters_.data(); }

 private:
  // The longest path and what stands around it.
  std::array<char, 4096 + 256> characters_ = {};
  std::size_t size_ = 0;
};

}  // namespace platform::crash
