#pragma once

#include <cstdint>
#include <optional>

#include "platform/FileReference.h"
#include "platform/Status.h"

// What file browsers keep about an item besides its contents. It is kept with the item itself: a
// symbolic link has none, nor have pipes, sockets and devices. Any thread; blocks for the disk.
namespace platform::finder_information {

// The item's flags word, with its label's colour in bits 1 to 3; 0 for an item of which nothing is
// kept. None when it cannot be read: there is no such item, or the file system or what is kept does
// not allow it.
std::optional<std::uint16_t> flags(const FileReference& item);

// Replaces the flags word and keeps everything else. Fails, changing nothing, where the user may
// not write to the item, where nothing can be kept, and where what is kept is not understood. When
// two processes change one item at once, the later one wins.
Status setFlags(const FileReference& item, std::uint16_t flags);

}  // namespace platform::finder_information
