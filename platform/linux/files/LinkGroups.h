#pragma once

#include <sys/stat.h>

#include <mutex>
#include <string>

#include "posix/FileDescriptor.h"

namespace platform {

// Keeps files that are one file under several names one file in the copy. The first copy of each is
// linked, under a name made of its identity, into a hidden folder of the new tree, where those that
// follow find it however deep they are; nothing is kept in memory for them. Thread-safe.
class LinkGroups {
 public:
  // `root` is the new tree's open directory and must outlive this.
  explicit LinkGroups(int root) : root_(root) {}

  // Makes `name` another name of the copy of `original` if there is one already. ENOENT when there
  // is none; 0 when it was done; otherwise an error number.
  int linkToCopy(const struct stat& original, int folder, const std::string& name);

  // Enters the finished copy `name` of `original`. When another thread has entered one first,
  // `name` becomes a name of that one. On a file system without such links nothing happens.
  int enter(const struct stat& original, int folder, const std::string& name);

  // Takes the hidden folder away again, when all is copied. 0 or an error number.
  int finish();

 private:
  // The hidden folder's descriptor, made at the first call; -1 when it cannot be made.
  int staging();

  const int root_;
  std::once_flag once_;
  std::string name_;               // written once, under once_
  posix::FileDescriptor staging_;  // likewise
};

}  // namespace platform
