#pragma once

#include <chrono>
#include <memory>

#include "platform/Privilege.h"
#include "platform/linux/privilege/ElevatorChannel.h"
#include "platform/linux/processes/ChildProcess.h"
#include "posix/FileDescriptor.h"

namespace platform {

// Whether the elevator is installed, or for the superuser stands in the bundle, and those who
// decide about it answer; blocks for some seconds at most.
bool canStartElevator();

// Starts the elevator with `elevatorsEnd` as its standard input, as root through pkexec(1),
// directly when this process is root, and waits until it has answered on `channel` or there is no
// more hope. `agent` is a descriptor that becomes readable when whoever is to authenticate has
// gone; an empty one is never looked at. The calling thread must live until this returns. On
// success `elevator` is the started process.
privilege::Outcome startElevator(ElevatorChannel& channel, posix::FileDescriptor elevatorsEnd,
                                 const posix::FileDescriptor& agent,
                                 std::chrono::milliseconds limit,
                                 std::unique_ptr<ChildProcess>& elevator);

}  // namespace platform
