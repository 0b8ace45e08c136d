#pragma once

#include <sys/stat.h>

#include "platform/linux/files/CopyContext.h"

namespace platform {

// Who owns what this process makes in a folder.
struct Ownership {
  uid_t user = 0;
  gid_t group = 0;
};

// Gives the copy `out` of the item `in`, both open, what `wanted` says: owner and group where that
// is allowed, extended attributes and access lists where the file system has them, permissions, and
// last of all the times. `present` is the copy's ownership as it was made, `presentMode` its
// permission bits. Without the owner, or from where programs may not run as somebody else
// (MountRights.h), the bits and capabilities for that are dropped. 0 or an error number.
int copyAttributes(int in, int out, const struct stat& wanted, Ownership present,
                   mode_t presentMode, const CopyContext& context);

// The same for items that are open only as places (O_PATH): links, pipes, devices.
int copyPlaceAttributes(int in, int out, const struct stat& wanted, Ownership present,
                        const CopyContext& context);

// Frees a newly made directory or file from the access lists that it has from the folder around it.
void dropInheritedAccessLists(int item);

}  // namespace platform
