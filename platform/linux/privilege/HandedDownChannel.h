#pragma once

#include "posix/FileDescriptor.h"

namespace platform {

// Takes the channel that this process's parent handed down out of the environment and out of what
// child programs inherit; it is kept until takeHandedDownChannel. Does nothing the second time.
void secureHandedDownChannel();

// The channel, secured first if it was not yet; empty when there is none or it was taken. Whether
// the elevator is at its other end is yet to be found out. Thread-safe.
posix::FileDescriptor takeHandedDownChannel();

}  // namespace platform
