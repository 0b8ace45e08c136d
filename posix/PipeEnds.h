#pragma once

#include "posix/FileDescriptor.h"

namespace posix {

// The two ends of a pipe (pipe(7)).
struct PipeEnds {
  FileDescriptor reading;
  FileDescriptor writing;
};

// A new pipe, its ends above the standard ends and closed on exec. Both are empty when the system
// has no more descriptors; errno says why.
PipeEnds makePipe();

}  // namespace posix
