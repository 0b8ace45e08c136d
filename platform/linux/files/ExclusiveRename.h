#pragma once

#include "platform/linux/files/Location.h"

namespace platform {

// Renames within one file system and never onto an existing item. 0 or an error number: EEXIST when
// the name is taken, EXDEV when the two folders are on different file systems. Where the file
// system cannot do both in one step, a file is linked to its new name and then unlinked from the
// old one, and a directory is renamed after a look whether the name is free.
int renameExclusively(const Location& from, const Location& to);

}  // namespace platform
