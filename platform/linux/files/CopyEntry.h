#pragma once

#include <string>

#include "platform/linux/files/CopyAttributes.h"
#include "platform/linux/files/LinkGroups.h"

namespace platform {

// One item on its way from one open folder to another.
struct EntryPlaces {
  // Only what was a file, or unknown, when it was listed is opened as one: opening a device may do
  // something.
  bool file = false;
  int sourceFolder = -1;
  const std::string& sourceName;
  int targetFolder = -1;
  const std::string& targetName;
};

// Copies an item that is no directory: a file with its contents, a link as a link, a pipe, socket
// or device as such, each with its attributes. `groups` keeps names of one file together; null for
// a single item. `made` is the ownership of what this process makes in the target folder, none when
// it is not known. A failure goes to the context, which is also false; the target may then be
// there in part. Any thread.
bool copyEntry(const EntryPlaces& places, CopyContext& context, LinkGroups* groups,
               const Ownership* made);

}  // namespace platform
