#pragma once

#include <zip.h>

#include "archiver/SourceWalk.h"

namespace archiver {

// What the files of one archive share while they are written into it.
struct FileSources {
  // The folder that their paths are relative to.
  int root = -1;
  // Why one of them could not be read: the library only knows that.
  platform::Status failure;
};

// A file's contents for the library, which opens it when it gets to it: a file that is not the one
// that was found, or has become shorter since, is a failure; what was appended since is left out.
// None, with the reason in `zip`, when there is no memory. `sources` must outlive the archive.
zip_source_t* fileSource(zip_t* zip, FileSources& sources, const SourceItem& item);

}  // namespace archiver
