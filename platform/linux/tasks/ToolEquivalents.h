#pragma once

#include <string>
#include <vector>

#include "posix/FileDescriptor.h"

namespace platform {

// The program to run for a tool that is named by the path it has elsewhere: what this system has in
// its place when nothing exists at the named path, else the named path. The equivalent takes the
// same arguments. Any thread.
std::string resolvedTool(const std::string& namedPath);

// What is started for a tool and its arguments: the program, what follows its name, and what it has
// from its third descriptor on. An image is detached after the tools of this process that still
// read from it or write to it, also when the caller ends the program before. Make it right before
// the start. Any thread.
struct ToolCommand {
  std::string path;
  std::vector<std::string> arguments;
  std::vector<posix::FileDescriptor> descriptors;
};
ToolCommand toolCommand(const std::string& namedPath, const std::vector<std::string>& arguments);

}  // namespace platform
