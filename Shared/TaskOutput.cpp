#include "Shared/TaskOutput.h"

#include <utility>

platform::Data TaskOutput::result() && {
  return output.empty() && !error.empty() ? std::move(error) : std::move(output);
}

TaskOutput readToEnd(platform::Pipe* output, platform::Pipe& error) {
  TaskOutput collected;
  platform::Data errorChunk;
  for (;;) {
    const bool outputArrived =
        output != nullptr && output->appendAvailableData(collected.output) > 0;
    if (!outputArrived) {
      errorChunk = error.availableData();
      if (errorChunk.empty()) return collected;
    }
    collected.error.append(errorChunk);
  }
}
