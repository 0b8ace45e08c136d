#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>

#include "platform/Status.h"
#include "platform/linux/files/Location.h"

namespace archiver {

// One item that is to go into an archive.
struct SourceItem {
  // Relative to the folder that holds the source.
  std::string path;
  // What the archive calls it.
  std::string name;
  // The item itself, a link's not its target's.
  struct stat status {};
  // Where a link leads, as it is written.
  std::string linkTarget;
};

// Calls `visit` for the source and, when it is a folder, for everything in it, a folder before what
// it holds, and names in the order of their bytes. Names begin with the source's own; without
// `keepParent` those of a folder's contents begin below it, and the folder itself is left out. No
// link is followed. Ends at the first failure, of `visit` too; what cannot be read is one.
platform::Status walkSource(const platform::Location& source, bool keepParent,
                            const std::function<platform::Status(const SourceItem&)>& visit);

}  // namespace archiver
