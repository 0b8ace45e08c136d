#pragma once

#include <chrono>

#include "posix/FileDescriptor.h"

// A descriptor on its way over a socket between two processes (unix(7), SCM_RIGHTS), with one byte.
namespace platform::personal {

// Sends `descriptor`; false when the other side has gone.
bool passDescriptor(int socket, int descriptor);

// Waits at most so long for what was sent; -1 when nothing comes.
posix::FileDescriptor receiveDescriptor(int socket, std::chrono::milliseconds limit);

}  // namespace platform::personal
