#pragma once

#include <string>
#include <vector>

namespace channel {

// The files that a command names: its absolute arguments, as they are written and as they resolve
// now, since a link gives one folder two names.
std::vector<std::string> namedPaths(const std::vector<std::string>& arguments);

// Whether a path of the one is a path of the other, or lies inside or above it.
bool overlap(const std::vector<std::string>& some, const std::vector<std::string>& others);

}  // namespace channel
