#pragma once

#include "posix/FileDescriptor.h"

namespace platform {

// What terminationStatus of a tool is when it cannot be known: the elevator went first.
inline constexpr int kUnknownEnd = -1;

// Takes the one status that comes on a pipe of the elevator, see elevator/Messages.h; blocks until
// it has come or the elevator is gone.
int takeReport(const posix::FileDescriptor& pipe);

}  // namespace platform
