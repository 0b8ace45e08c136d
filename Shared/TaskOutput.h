#pragma once

#include "platform/Task.h"

// What a program wrote to its two standard ends. A value.
struct TaskOutput {
  platform::Data output;
  platform::Data error;

  // The output; what went to the error end stands in for it when there was none. The two are never
  // joined.
  platform::Data result() &&;
};

// Reads a program's output to its end, then its error pipe to its end; a null `output` counts as
// one that yields nothing. The error pipe is read only while the output yields nothing, and the
// first empty read of it ends everything. The error chunk that was read last is appended once more
// each time output arrives after it. Blocks; raises what the pipes raise.
TaskOutput readToEnd(platform::Pipe* output, platform::Pipe& error);
