#include "platform/linux/files/RemoveTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/linux/SystemError.h"
#include "platform/linux/files/TreeWalk.h"

namespace platform {
namespace {

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

class Removal final : public TreeVisitor {
 public:
  explicit Removal(LockedFolders lockedFolders) : lockedFolders_(lockedFolders) {}

  const Status& result() const noexcept { return result_; }

  posix::FileDescriptor enter(int parent, const std::string& name) override;
  bool visit(const Directory& folder, const Item& item) override;
  bool leave(const Directory& folder, int parent, const std::string& name) override;
  void failed(int error, int folder, const char* name) override;
  bool stopped() override { return !result_.ok(); }

 private:
  posix::FileDescriptor open(int parent, const std::string& name) const;

  const LockedFolders lockedFolders_;
  std::vector<int> sweeps_;  // of each folder on the way down
  int earlierSweeps_ = 0;    // of the folder that is entered next
  Status result_;
};

posix::FileDescriptor Removal::open(int parent, const std::string& name) const {
  posix::FileDescriptor directory = openBelow(parent, name.c_str());
  if (lockedFolders_ == LockedFolders::respect) return directory;
  if (!directory && errno == EACCES) {
    allowOwner(parent, name.c_str());
    directory = openBelow(parent, name.c_str());
  }
  if (directory) ::fchmod(directory.get(), S_IRWXU);
  return directory;
}

posix::FileDescriptor Removal::enter(int parent, const std::string& name) {
  posix::FileDescriptor directory = open(parent, name);
  const int error = directory ? 0 : errno;
  const int sweeps = std::exchange(earlierSweeps_, 0) + 1;
  if (directory) {
    sweeps_.push_back(sweeps);
    return directory;
  }
  if (error == ENOENT) return directory;
  // An empty folder that may not be read can go all the same; so can what took a folder's place.
  const int flag = error == EACCES ? AT_REMOVEDIR : 0;
  const bool removed = (error == EACCES || error == ENOTDIR || error == ELOOP) &&
                       ::unlinkat(parent, name.c_str(), flag) == 0;
  if (!removed) failed(error, parent, name.c_str());
  return directory;
}

// Everything but folders goes at once.
bool Removal::visit(const Directory& folder, const Item& item) {
  if (item.type == DT_DIR) return true;
  const char* const name = item.name.data();
  if (::unlinkat(folder->get(), name, 0) == 0 || errno == ENOENT) return false;
  const bool isFolder = errno == EISDIR;
  if (!isFolder) failed(errno, folder->get(), name);
  return isFolder;
}

bool Removal::leave(const Directory&, int parent, const std::string& name) {
  earlierSweeps_ = sweeps_.back();
  sweeps_.pop_back();
  const int error = ::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
  const bool refilled = error == ENOTEMPTY || error == EEXIST;
  if (refilled && earlierSweeps_ < kMaxSweeps) return true;
  earlierSweeps_ = 0;
  if (error != 0 && error != ENOENT) failed(error, parent, name.c_str());
  return false;
}

void Removal::failed(int error, int folder, const char* name) {
  result_ = statusFromErrno(error, pathOf(folder, name));
}

}  // namespace

void allowOwner(int folder, const char* name) {
  const posix::FileDescriptor item(::openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  const std::string path = "/proc/self/fd/" + std::to_string(item.get());
  if (item) ::chmod(path.c_str(), S_IRWXU);
}

Status removeTree(const Location& location, LockedFolders lockedFolders) {
  if (::unlinkat(location.descriptor(), location.name.c_str(), 0) == 0) return {};
  if (errno != EISDIR) {
    return statusFromErrno(errno, pathOf(location));
  }
  Removal removal(lockedFolders);
  TreeWalk(removal, TreeWalk::ReadOn::fromTheBeginning).walk(location.descriptor(), location.name);
  return removal.result();
}

}  // namespace platform
