#pragma once

#include <string>

namespace session_helper {

// What one ordinary unmount came to.
struct UnmountResult {
  bool done = false;
  // Somebody uses what is mounted there, or something else is mounted inside.
  bool busy = false;
  // The system tool's words when it failed.
  std::string message;
};

enum class Manner {
  ordinary,
  // Out of the tree of files at once; who has a file of it open can still read that.
  lazy,
};

// Has the system's own tool unmount what is mounted at `mountPoint`, which has no links in it. The
// tool knows what an ordinary user may unmount and what else is to be cleared away with it.
UnmountResult unmount(const std::string& mountPoint, Manner manner);

}  // namespace session_helper
