#pragma once

#include <string>

#include "platform/Status.h"

namespace archiver {

// Puts the item at the absolute path `source` into a new zip archive at the absolute path
// `archive`: a folder with its own name before those of its contents when `keepParent`, else its
// contents alone. What a zip archive has no place for is left out: owners, extended attributes,
// access lists, which files are one file; special files with a line on standard error each.
//
// The archive grows under a hidden name beside its place and gets its name when it is whole and on
// the disk, which replaces a file or a link that has that name; it fails when a folder has it. A
// failed one leaves nothing behind, and what was there as it was. It also fails when anything
// cannot be read, or becomes shorter while it is read. A link that unpack would refuse is packed,
// with a line on standard error.
platform::Status pack(const std::string& source, const std::string& archive, bool keepParent);

}  // namespace archiver
