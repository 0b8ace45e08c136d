#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "posix/FileDescriptor.h"

namespace platform {

// The open directories on the way down a tree, the deepest on top. Only the deepest few are kept
// open, so that the depth of a tree is not limited by the number of files a process may have open.
// One that was closed on the way down is opened again through ".." on the way up, and only counts
// when it is the very directory that it was. One thread at a time.
class DirectoryChain {
 public:
  // Shared, because work on a directory may still be going on when the walk has left it.
  using Directory = std::shared_ptr<const posix::FileDescriptor>;

  const Directory& top() const { return links_.back().directory; }
  std::size_t depth() const noexcept { return links_.size(); }

  void push(posix::FileDescriptor directory);

  // Leaves the top directory. 0, or an error number: ESTALE when the tree was moved about so that
  // the directory above is not the one that it was.
  int pop();

 private:
  struct Link {
    Directory directory;  // none while closed
    dev_t device = 0;     // both valid while closed
    ino_t inode = 0;
  };

  static void close(Link& link);
  static int reopen(Link& link, int child);

  std::vector<Link> links_;
};

}  // namespace platform
