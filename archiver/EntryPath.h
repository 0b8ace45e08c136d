#pragma once

#include <optional>
#include <string>
#include <string_view>

// The names by which an archive calls what is in it. Whoever made the archive chose them, so they
// are only taken when they stay inside the folder that it is unpacked into. Pure functions.
namespace archiver {

// An entry's name as a path relative to that folder: without empty and "." components and without a
// slash at the end; "" for the folder itself. None when it is empty, absolute, or has a ".."
// component. Any other byte is part of a name, as it is for the file system: backslashes, line
// breaks, what is not UTF-8.
std::optional<std::string> entryPath(std::string_view name);

// The path of the folder that an entry is in; "" for the folder of all.
std::string parentPath(const std::string& path);

// Whether a link at `path` to `target` names a place outside, as it is written: an absolute one, or
// one with more ".." than there are folders before them. What it leads to by way of other links is
// not looked at.
bool namesOutside(const std::string& path, std::string_view target);

}  // namespace archiver
