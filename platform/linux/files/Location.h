#pragma once

#include <sys/stat.h>

#include <string>

#include "posix/FileDescriptor.h"

namespace platform {

// An item as the folder that holds it, pinned by a descriptor, and its name there. What is done by
// these two hits that folder and no other, whatever becomes of the path meanwhile.
struct Location {
  posix::FileDescriptor folder;
  std::string name;

  explicit operator bool() const noexcept { return static_cast<bool>(folder); }
  int descriptor() const noexcept { return folder.get(); }
};

// The location that `path` names; links on the way to the folder are followed, the item itself is
// not looked at. Without a folder, and with errno set, when that cannot be opened, when the path is
// relative, or when its last component is no name that a folder can hold ("/", "." and "..").
Location locate(const std::string& path);

// `name` in an open folder, which stays the caller's. Without a folder, and with errno set, when
// there is no descriptor left.
Location locationIn(int folder, std::string name);

// The status of the item itself, a link's not its target's. 0 or an error number.
int statusOf(const Location& location, struct stat& status);

// Whether both are the same name in the same folder.
bool isSameLocation(const Location& one, const Location& other);

// The present path of `name` in an open folder, for messages; only the name when it has none.
std::string pathOf(int folder, const std::string& name);
std::string pathOf(const Location& location);

}  // namespace platform
