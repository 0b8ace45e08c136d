#pragma once

#include <sys/types.h>

#include <string>

#include "posix/FileDescriptor.h"

namespace archiver {

// Opens the item at `path`, relative to the open directory `root`, as open(2) does. No component of
// the path may be a symbolic link (ELOOP) or lead out of the directory (EXDEV), whatever others do
// to the tree meanwhile. Without a descriptor, and with errno set, when that fails. `mode` is for a
// file that is made.
posix::FileDescriptor openBeneath(int root, const std::string& path, int flags, mode_t mode = 0);

// Whether the symbolic link at `path`, followed to its end through all others, leaves `root`. One
// that ends nowhere inside does not. The link itself must not be reached through another.
bool leavesRoot(int root, const std::string& path);

}  // namespace archiver
