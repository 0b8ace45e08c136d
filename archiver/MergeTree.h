#pragma once

#include "platform/Status.h"
#include "platform/linux/files/Location.h"

namespace archiver {

// Moves what is in the folder `from` into the open folder `into` of the same file system: folders
// into folders of their name, which keep their permissions; anything else in the place of what has
// its name. Each item moves in one step. Nothing is moved when something does not fit: a folder
// takes no other item's place, and no other item a folder's. Follows no link.
platform::Status mergeTree(const platform::Location& from, int into);

}  // namespace archiver
