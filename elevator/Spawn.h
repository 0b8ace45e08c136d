#pragma once

#include <string>
#include <vector>

#include "channel/Messages.h"
#include "elevator/Tool.h"
#include "posix/FileDescriptor.h"

namespace elevator {

// Starts an examined tool with `words`, its own name first: from the very file that was examined,
// in a session of its own, with a clean environment, no blocked or ignored signals, and three
// standard ends that lead nowhere, the output to `output` unless that is empty. Answers 0 and the
// process, or why it did not start.
int spawn(const Tool& tool, const std::vector<std::string>& words,
          const posix::FileDescriptor& output, posix::FileDescriptor& process);

// How an ended process ended. It is gone from the system then.
channel::TermStatus collect(const posix::FileDescriptor& process);

}  // namespace elevator
