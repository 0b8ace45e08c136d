#pragma once

#include <string>
#include <vector>

#include "channel/Messages.h"
#include "elevator/Tool.h"
#include "posix/FileDescriptor.h"

namespace elevator {

struct ToolEnds {
  // Where the standard output goes; nowhere when empty.
  posix::FileDescriptor output;
  // What the tool holds open behind its standard ends as long as it lasts, the
  // caller's; none when negative.
  int life = -1;
};

// Starts an examined tool with `words`, its own name first: from the very file that was examined,
// in a session of its own, in its view of the files (View.h), with a clean environment, no blocked
// signal, none ignored but those that a session's end sends, and three standard ends that lead
// nowhere. Answers 0 and the process, or why it did not start.
int spawn(const Tool& tool, const std::vector<std::string>& words, const ToolEnds& ends,
          posix::FileDescriptor& process);

// How an ended process ended. It is gone from the system then.
channel::TermStatus collect(const posix::FileDescriptor& process);

}  // namespace elevator
