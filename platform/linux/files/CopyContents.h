#pragma once

#include <sys/stat.h>

#include "platform/linux/files/CopyContext.h"
#include "platform/linux/files/EntryPlaces.h"

namespace platform {

// A file that is being copied.
struct OpenFiles {
  int in = -1;
  int out = -1;
  const struct stat& status;  // of `in` when it was opened
  const EntryPlaces& places;
};

// Copies the contents of `in` into the empty `out`: by sharing extents where the file system can,
// else inside the kernel, else through memory; holes stay holes. What is appended meanwhile is left
// out. 0, or an error number: ESTALE when the file has become shorter meanwhile, ECANCELED when the
// copy is to stop.
int copyContents(const OpenFiles& files, CopyContext& context);

}  // namespace platform
