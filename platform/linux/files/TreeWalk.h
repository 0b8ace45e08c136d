#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/files/DirectoryChain.h"
#include "posix/FileDescriptor.h"

namespace platform {

// Opens a directory for reading, following no link. Empty, with errno set, on a failure.
posix::FileDescriptor openFolder(int parent, const std::string& name);

// What is done with the items of a tree that a TreeWalk goes through.
class TreeVisitor {
 public:
  // Shared, because work on a directory may still be going on when the walk has left it.
  using Directory = DirectoryChain::Directory;

  struct Item {
    // Valid during the call; a zero follows it.
    std::string_view name;
    // DT_REG, DT_DIR, DT_LNK ... of dirent.h; DT_UNKNOWN for what is gone already.
    unsigned char type = 0;
  };

  virtual ~TreeVisitor() = default;

  // Opens the directory `name` of the open `parent`, which is gone through next. Without a
  // descriptor it is passed by.
  virtual posix::FileDescriptor enter(int parent, const std::string& name) {
    return openFolder(parent, name);
  }

  // An item of `folder`. True has it entered, once the walk comes to it.
  virtual bool visit(const Directory& folder, const Item& item) = 0;

  // All of `folder`, the directory `name` of `parent`, was gone through. True has it entered again.
  virtual bool leave(const Directory& /*folder*/, int /*parent*/, const std::string& /*name*/) {
    return false;
  }

  // A folder could not be read to its end (`name` is "."), which passes by the rest of it, or the
  // one above not be returned to (".."), which ends the walk.
  virtual void failed(int /*error*/, int /*folder*/, const char* /*name*/) {}

  // Asked after each of these: true ends the walk.
  virtual bool stopped() { return false; }
};

// Goes through a tree from descriptor to descriptor, the items of a folder before what is in its
// folders. Memory and open files do not grow with the tree: where a folder holds very many folders,
// some are read and gone through before the rest is read. For one walk, on one thread.
class TreeWalk {
 public:
  // Where such a rest is looked for: removing items may move those behind them.
  enum class ReadOn { whereItStopped, fromTheBeginning };

  explicit TreeWalk(TreeVisitor& visitor, ReadOn readOn = ReadOn::whereItStopped)
      : visitor_(visitor), readOn_(readOn) {}

  // Through the directory `name` of `parent`, until its end or until the visitor stops.
  void walk(int parent, const std::string& name);

 private:
  struct Level {
    std::string name;
    std::vector<std::string> folders;  // found in it and not yet gone into
    off_t position = 0;                // where reading it goes on
    bool read = false;                 // nothing more to read
  };

  void step();
  void enter(int parent, std::string name);
  void read(Level& level);
  void visit(Level& level, TreeVisitor::Item item);
  void leave();

  TreeVisitor& visitor_;
  const ReadOn readOn_;
  int parent_ = -1;  // of the whole tree
  DirectoryChain chain_;
  std::vector<Level> levels_;
  std::size_t pendingFolders_ = 0;
};

}  // namespace platform
