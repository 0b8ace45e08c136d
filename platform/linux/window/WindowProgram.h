#pragma once

#include <memory>

#include "platform/linux/processes/ChildProcess.h"
#include "posix/FileDescriptor.h"

namespace platform {

// Starts the window program as the person: as whoever runs this process, and for the superuser, who
// shows nothing himself, as the console user with that person's environment. It gets `socket` and
// no other descriptor. Null, with a line on the console, when there is no display, nobody to show
// anything to, or no such program; that the display does not work is found out by the program.
// Waits for the exec and for nothing that follows.
std::unique_ptr<ChildProcess> startWindowProgram(const posix::FileDescriptor& socket);

}  // namespace platform
