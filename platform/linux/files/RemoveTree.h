#pragma once

#include "platform/Status.h"
#include "platform/linux/files/Location.h"

namespace platform {

enum class LockedFolders {
  respect,  // a folder that may not be read or written stops the removal
  open,     // it is given permissions first: for trees that this process has made itself
};

// Removes the item, a directory with everything in it, going from descriptor to descriptor and
// following no link. Stops at the first item that cannot be removed and at a mount point (EBUSY),
// never goes beyond one. Memory and open files do not grow with the tree.
Status removeTree(const Location& location, LockedFolders lockedFolders = LockedFolders::respect);

}  // namespace platform
