#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "posix/FileDescriptor.h"

namespace platform {

// Where a path leads the superuser. Only links of the superuser's own are followed.
struct Reached {
  // The person whose place it is: who owns the first folder, link or file on the way that is not
  // the superuser's, or has mounted the file system there. What is at the path is then that
  // person's to change at any moment, and nothing of it was looked at. None for the superuser's.
  std::optional<std::uint32_t> owner;
  // The item in a place of the superuser's, open as a place only (O_PATH): it is what was found,
  // whatever becomes of the path. -1 when there is none.
  posix::FileDescriptor item;
};

// Goes along an absolute path. Never waits for a file system of a person's to answer. Any thread.
Reached reach(const std::string& path);

}  // namespace platform
