#include "platform/linux/files/TemporaryName.h"

#include <algorithm>
#include <cstdint>
#include <random>

namespace platform {
namespace {

constexpr std::string_view kDigits = "0123456789abcdef";
constexpr std::size_t kLength = 16;
constexpr std::string_view kPurposes[] = {"archiving", "copying", "moving", "unpacking"};

}  // namespace

std::string temporaryName(std::string_view purpose) {
  std::random_device source;
  std::uint64_t bits = (std::uint64_t{source()} << 32U) | source();
  std::string name = ".";
  name += purpose;
  name += '-';
  for (std::size_t i = 0; i < kLength; ++i, bits >>= 4U) name += kDigits[bits & 0xFU];
  return name;
}

bool isTemporaryName(std::string_view name) {
  const std::size_t dash = name.find('-');
  if (!name.starts_with('.') || dash == std::string_view::npos) return false;
  const std::string_view digits = name.substr(dash + 1);
  return std::ranges::count(kPurposes, name.substr(1, dash - 1)) > 0 && digits.size() == kLength &&
         digits.find_first_not_of(kDigits) == std::string_view::npos;
}

}  // namespace platform
