#pragma once

#include <string>

#include "posix/FileDescriptor.h"

namespace platform {

// An open Trash.
struct TrashFolder {
  // Where recycled items go.
  posix::FileDescriptor files;
  // Where the information for restoring them goes; none when the Trash is an ordinary folder or the
  // disk has no room for that folder.
  posix::FileDescriptor information;

  explicit operator bool() const noexcept { return static_cast<bool>(files); }
};

// Opens the Trash at `path`, <home>/.Trash. That is a door: a link, made here when nothing is
// there, to the folder "files" of the home's own trash by the freedesktop.org Trash specification
// ($XDG_DATA_HOME/Trash; as superuser always .local/share/Trash in the console user's home), whose
// folders are made as well, closed to others and belonging to the home's owner. A real folder in
// the door's place is used as it is, and one is made there where the disk has no room for the
// others. As superuser no link but the door is followed in the console
// user's home, and a door that leads out of that home is refused. Without files, and with errno
// set, on a failure.
TrashFolder openTrash(const std::string& path);

}  // namespace platform
