#pragma once

#include "platform/linux/files/CopyContext.h"
#include "platform/linux/files/Location.h"

namespace platform {

// Copies the directory `source` with everything in it to the new directory `target`, whose name
// must be free. Goes from descriptor to descriptor, follows no link, copies files on all
// processors; memory and open files do not grow with the tree. A failure goes to the context, which
// is also false, and what was made stays for the caller to remove.
bool copyTree(const Location& source, const Location& target, CopyContext& context);

}  // namespace platform
