#include "platform/linux/files/TemporaryName.h"

#include <cstdint>
#include <random>

namespace platform {

std::string temporaryName(std::string_view purpose) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  constexpr int kLength = 16;
  std::random_device source;
  std::uint64_t bits = (std::uint64_t{source()} << 32U) | source();
  std::string name = ".";
  name += purpose;
  name += '-';
  for (int i = 0; i < kLength; ++i, bits >>= 4U) name += kDigits[bits & 0xFU];
  return name;
}

}  // namespace platform
