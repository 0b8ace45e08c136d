#pragma once

#include <cstddef>
#include <string_view>

// Whether a property list is small and flat enough to be built in memory. The library that builds
// it takes whatever it is given: deep nesting exhausts the stack, a binary list whose objects refer
// to each other repeatedly grows exponentially, and a dictionary takes time by its size squared.
namespace platform::property_list_check {

inline constexpr std::size_t kDeepestNesting = 512;
// Keys count as well.
inline constexpr std::size_t kMostValues = 200'000;
inline constexpr std::size_t kMostBytes = std::size_t{256} << 20;

// An XML list. Also refused: processing instructions, document types and attributes inside of its
// first container, where no writer puts them and where they could hide an element from this check.
bool isReasonableXml(std::string_view bytes);

// A binary list. Refused also when it is cut off or refers to itself.
bool isReasonableBinary(std::string_view bytes);

}  // namespace platform::property_list_check
