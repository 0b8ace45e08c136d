#pragma once

#include <cstdint>
#include <vector>

#include "archiver/ZipReader.h"

namespace archiver {

// How much an archive may become.
struct Bounds {
  // Of all files together.
  std::uint64_t bytes = 0;
  // Files, folders and links, also the folders that are only named by what is in them.
  std::uint64_t items = 0;
};

// For an archive of `archiveSize` bytes that is unpacked into the open `folder`: what the file
// system has free, and of bytes at most 1,032 times the archive's size. No deflated contents can be
// larger than that; an archive that claims more gives the same bytes out several times.
Bounds boundsFor(int folder, std::uint64_t archiveSize);

// Looks at every entry before any is unpacked, and puts them into `entries` in their order. Refuses
// an archive of which an entry is refused, one that is larger than `bounds`, and one with two
// entries of one name.
platform::Status inspect(const ZipReader& archive, const Bounds& bounds,
                         std::vector<Entry>& entries);

}  // namespace archiver
