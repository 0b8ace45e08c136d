#pragma once

#include <sys/stat.h>

#include "platform/linux/CopyContext.h"

namespace platform {

// Copies the contents of the open file `in`, whose status was `status` when it was opened, into the
// empty open file `out`: by sharing extents where the file system can, else inside the kernel, else
// through memory; holes stay holes. What is appended meanwhile is left out. 0, or an error number:
// ESTALE when the file has become shorter meanwhile, ECANCELED when the copy is to stop.
int copyContents(int in, int out, const struct stat& status, CopyContext& context);

}  // namespace platform
