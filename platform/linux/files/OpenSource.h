#pragma once

#include <string>

#include "platform/linux/files/CopyContext.h"
#include "posix/FileDescriptor.h"

namespace platform {

// Opens what was a file when it was listed, for reading, without following a link and without
// waiting for the other end of what is a pipe by now. One who has a lease on the file (fcntl(2),
// F_SETLEASE) is given the time that the kernel gives to let go of it, unless the copy is stopped.
// Empty, with errno set, on a failure.
posix::FileDescriptor openSource(int folder, const std::string& name, CopyContext& context);

}  // namespace platform
