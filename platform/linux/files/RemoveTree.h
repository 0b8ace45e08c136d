#pragma once

#include "platform/Status.h"
#include "platform/linux/files/Location.h"

namespace platform {

enum class LockedFolders {
  respect,  // a folder that may not be read or written stops the removal
  open,     // it is given permissions first: for trees that are nobody's any more
};

// Gives the folder's owner, and nobody else, all permissions on the directory `name`, where this
// process may; a link is not followed.
void allowOwner(int folder, const char* name);

// Removes the item, a directory with everything in it, going from descriptor to descriptor and
// following no link. Stops at the first item that cannot be removed and at a mount point (EBUSY),
// never goes beyond one. Memory and open files do not grow with the tree.
Status removeTree(const Location& location, LockedFolders lockedFolders = LockedFolders::respect);

}  // namespace platform
