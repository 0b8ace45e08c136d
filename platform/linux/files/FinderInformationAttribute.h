#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The value of the extended attribute in which file servers for the first platform's clients keep
// an item's Finder information on Linux, and which they and we therefore see alike: 32 bytes, of
// which the two at offset 8 are the flags word, its higher byte first. Pure functions; thread-safe.
namespace platform::finder_information {

inline constexpr char kAttribute[] = "user.com.apple.FinderInfo";
inline constexpr std::size_t kAttributeSize = 32;

// The flags word; none when `value` has another length.
std::optional<std::uint16_t> flagsIn(std::string_view value);

// `value` with that flags word and every other byte kept; none when it has another length.
std::optional<std::string> withFlags(std::string value, std::uint16_t flags);

}  // namespace platform::finder_information
