#pragma once

#include <string>

#include "archiver/Inspection.h"

namespace archiver {

// Unpacks the zip archive at the absolute path `archive` into a folder at the absolute path
// `folder`, whose parent must exist: files, folders and links with their permissions and times.
// What belonged to whom, and who it runs as (the set-user-ID and set-group-ID bits), is not taken
// from an archive.
//
// Refuses a whole archive of which one entry would leave the folder: by an absolute name, by "..",
// through a link, or as a link that leads outside, by itself or by way of others; one with devices,
// pipes, sockets, encrypted or damaged entries, or two of one name; and one that becomes too large,
// see boundsFor. Names are taken byte by byte.
//
// A new folder grows under a hidden name beside its place, closed to others, and gets its name when
// it is whole. Into a folder that is there already its items are moved when all of them are whole,
// see mergeTree. It fails when something else is there, and a refused or broken archive leaves
// nothing behind and what was there as it was.
platform::Status unpack(const std::string& archive, const std::string& folder);

// The same into an empty folder that is open and that nobody else may enter; what is in it after a
// failure is the caller's to remove.
platform::Status unpackInto(const ZipReader& archive, int folder, const Bounds& bounds);

}  // namespace archiver
