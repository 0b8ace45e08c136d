#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace platform::introspection {

// A description that is longer describes nothing that we know.
inline constexpr std::size_t kLargestDescription = 256 * 1024;

// The names of the methods that a bus object's description, in the XML of the D-Bus Specification's
// introspection format, declares for `interface`. Interfaces of child objects do not count.
// Anything that is not well-formed, or longer than kLargestDescription, declares nothing.
std::set<std::string> methodsOf(std::string_view description, std::string_view interface);

}  // namespace platform::introspection
