#pragma once

#include <string>

namespace test {

// What a shell command writes to its standard output; what it says on standard error is dropped.
std::string outputOf(const std::string& command);

// Whether there is a tool of this name on the search path.
bool hasTool(const std::string& name);

}  // namespace test
