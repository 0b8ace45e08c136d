#include "platform/linux/files/FinderInformationAttribute.h"

namespace platform::finder_information {
namespace {

constexpr std::size_t kFlagsOffset = 8;

}  // namespace

std::optional<std::uint16_t> flagsIn(std::string_view value) {
  if (value.size() != kAttributeSize) return std::nullopt;
  const auto high = static_cast<unsigned char>(value[kFlagsOffset]);
  const auto low = static_cast<unsigned char>(value[kFlagsOffset + 1]);
  return static_cast<std::uint16_t>(high << 8U | low);
}

std::optional<std::string> withFlags(std::string value, std::uint16_t flags) {
  if (value.size() != kAttributeSize) return std::nullopt;
  value[kFlagsOffset] = static_cast<char>(flags >> 8U);
  value[kFlagsOffset + 1] = static_cast<char>(flags & 0xFFU);
  return value;
}

}  // namespace platform::finder_information
