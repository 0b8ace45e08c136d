#include "platform/linux/files/RemoveTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <string>
#include <vector>

#include "platform/linux/SystemError.h"
#include "platform/linux/files/DirectoryChain.h"
#include "platform/linux/files/DirectoryReader.h"

namespace platform {
namespace {

// How many names of folders that are still to be removed may be remembered at once.
constexpr std::size_t kMaxPendingFolders = 16384;
// How often a folder that others keep filling is emptied again.
constexpr int kMaxSweeps = 64;

// Opens the directory itself, not across a mount point, which gives EBUSY.
posix::FileDescriptor openBelow(int folder, const char* name) {
  open_how how{};
  how.flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  posix::FileDescriptor directory(
      static_cast<int>(::syscall(SYS_openat2, folder, name, &how, sizeof how)));
  if (!directory && errno == EXDEV) errno = EBUSY;
  return directory;
}

void givePermissions(int folder, const char* name) {
  const posix::FileDescriptor item(::openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  const std::string path = "/proc/self/fd/" + std::to_string(item.get());
  if (item) ::chmod(path.c_str(), S_IRWXU);
}

class TreeRemover {
 public:
  explicit TreeRemover(LockedFolders lockedFolders) : lockedFolders_(lockedFolders) {}

  Status removeDirectory(const Location& location);

 private:
  struct Level {
    std::string name;
    std::vector<std::string> folders;  // found in it and not yet removed
    int sweeps = 0;
  };

  bool step();
  bool enter(int folder, std::string name);
  bool sweep(Level& level);
  bool removeEntry(Level& level, std::string name, unsigned char type);
  bool leave();
  bool enterAgain(int folder, const Level& level);
  bool fail(int error, int folder, const std::string& name);

  const LockedFolders lockedFolders_;
  DirectoryChain chain_;
  std::vector<Level> levels_;
  std::size_t pendingFolders_ = 0;
  int parent_ = -1;  // the folder of the whole tree
  Status failure_;
};

Status TreeRemover::removeDirectory(const Location& location) {
  parent_ = location.descriptor();
  if (!enter(parent_, location.name)) return failure_;
  while (!levels_.empty()) {
    if (!step()) return failure_;
  }
  return {};
}

bool TreeRemover::step() {
  Level& level = levels_.back();
  if (level.folders.empty()) {
    if (!sweep(level)) return false;
    if (level.folders.empty()) return leave();
  }
  std::string next = std::move(level.folders.back());
  level.folders.pop_back();
  --pendingFolders_;
  return enter(chain_.top()->get(), std::move(next));
}

bool TreeRemover::enter(int folder, std::string name) {
  posix::FileDescriptor directory = openBelow(folder, name.c_str());
  if (!directory && errno == EACCES && lockedFolders_ == LockedFolders::open) {
    givePermissions(folder, name.c_str());
    directory = openBelow(folder, name.c_str());
  }
  if (directory) {
    if (lockedFolders_ == LockedFolders::open) ::fchmod(directory.get(), S_IRWXU);
    chain_.push(std::move(directory));
    levels_.push_back({std::move(name), {}, 0});
    return true;
  }
  const int error = errno;
  if (error == ENOENT) return true;
  // An empty folder that may not be read can go all the same; so can what took a folder's place.
  const int flag = error == EACCES ? AT_REMOVEDIR : 0;
  const bool removed = (error == EACCES || error == ENOTDIR || error == ELOOP) &&
                       ::unlinkat(folder, name.c_str(), flag) == 0;
  return removed || fail(error, folder, name);
}

// One pass over the directory: everything but folders goes at once, folders are remembered.
bool TreeRemover::sweep(Level& level) {
  const int directory = chain_.top()->get();
  if (level.sweeps++ > 0 && ::lseek(directory, 0, SEEK_SET) != 0) {
    return fail(errno, directory, ".");
  }
  DirectoryReader reader(directory);
  while (const auto entry = reader.next()) {
    if (!removeEntry(level, std::string(entry->name), entry->type)) return false;
    if (!level.folders.empty() && pendingFolders_ >= kMaxPendingFolders) return true;
  }
  return reader.error() == 0 || fail(reader.error(), directory, ".");
}

bool TreeRemover::removeEntry(Level& level, std::string name, unsigned char type) {
  const int directory = chain_.top()->get();
  if (type != DT_DIR) {
    if (::unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT) return true;
    if (errno != EISDIR) return fail(errno, directory, name);
  }
  level.folders.push_back(std::move(name));
  ++pendingFolders_;
  return true;
}

bool TreeRemover::leave() {
  if (const int error = chain_.pop(); error != 0) return fail(error, chain_.top()->get(), "..");
  const int folder = chain_.depth() > 0 ? chain_.top()->get() : parent_;
  const Level level = std::move(levels_.back());
  levels_.pop_back();
  if (::unlinkat(folder, level.name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return true;
  const bool refilled = errno == ENOTEMPTY || errno == EEXIST;
  if (!refilled || level.sweeps >= kMaxSweeps) return fail(errno, folder, level.name);
  return enterAgain(folder, level);
}

bool TreeRemover::enterAgain(int folder, const Level& level) {
  const std::size_t depth = levels_.size();
  if (!enter(folder, level.name)) return false;
  if (levels_.size() > depth) levels_.back().sweeps = level.sweeps;
  return true;
}

bool TreeRemover::fail(int error, int folder, const std::string& name) {
  failure_ = statusFromErrno(error, pathOf(folder, name));
  return false;
}

}  // namespace

Status removeTree(const Location& location, LockedFolders lockedFolders) {
  if (::unlinkat(location.descriptor(), location.name.c_str(), 0) == 0) return {};
  if (errno != EISDIR) {
    return statusFromErrno(errno, pathOf(location.descriptor(), location.name));
  }
  return TreeRemover(lockedFolders).removeDirectory(location);
}

}  // namespace platform
