#pragma once

#include <string>

namespace platform {

// The program to run for a tool that is named by the path it has elsewhere: what this system has in
// its place when nothing exists at the named path, else the named path. The equivalent takes the
// same arguments. Any thread.
std::string resolvedTool(const std::string& namedPath);

}  // namespace platform
