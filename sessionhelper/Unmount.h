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

// Unmounts what is mounted at `mountPoint`, which has no links in it. For an ordinary user the
// system's own tool does, which knows what that user may unmount and what else is to be cleared
// away with it. As root the folder is held and no link followed; where others may change the way
// there, only an image's mount is taken away, or one that the folder's owner made.
UnmountResult unmount(const std::string& mountPoint, Manner manner);

}  // namespace session_helper
