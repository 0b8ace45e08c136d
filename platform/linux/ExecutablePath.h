#pragma once

#include <string>

namespace platform {

// The full path of the running program's file, as /proc/self/exe names it (proc(5)); "" when /proc
// is not there. When the file has been removed or replaced meanwhile it is the path it had.
std::string executablePath();

}  // namespace platform
