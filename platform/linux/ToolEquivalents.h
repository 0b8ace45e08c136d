#pragma once

#include <string>
#include <vector>

namespace platform {

// A program with its arguments, its own name not among them.
struct ToolInvocation {
  std::string path;
  std::vector<std::string> arguments;
};

// What to run for a tool that is named by the path it has elsewhere: what this system has in its
// place when nothing exists at the named path, else just the named tool. Any thread.
ToolInvocation resolvedTool(const std::string& namedPath,
                            const std::vector<std::string>& arguments);

}  // namespace platform
