#pragma once

#include "platform/linux/files/CopyAttributes.h"
#include "platform/linux/files/EntryPlaces.h"
#include "platform/linux/files/LinkGroups.h"

namespace platform {

// Copies an item that is no directory: a file with its contents, a link as a link, a pipe, socket
// or device as such, each with its attributes. `groups` keeps names of one file together; null for
// a single item. `made` is the ownership of what this process makes in the target folder, none when
// it is not known. A failure goes to the context, which is also false; the target may then be
// there in part. Any thread.
bool copyEntry(const EntryPlaces& places, CopyContext& context, LinkGroups* groups,
               const Ownership* made);

}  // namespace platform
