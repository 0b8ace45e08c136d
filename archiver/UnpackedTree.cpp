#include "archiver/UnpackedTree.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <climits>

#include "archiver/Beneath.h"
#include "archiver/EntryPath.h"
#include "platform/linux/SystemError.h"
#include "posix/WriteAll.h"

namespace archiver {
namespace {

using platform::Status;
using platform::statusFromErrno;

constexpr mode_t kOwnFolder = 0700;

// Only the time of modification is kept in an archive.
void timesOf(const Entry& entry, timespec (&times)[2]) {
  times[0] = {0, UTIME_NOW};
  times[1] = {entry.modified, 0};
}

std::string nameIn(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

Status refusedLink(const std::string& path) {
  return Status::failure(EINVAL, "refused \"" + path + "\": the link leads out of the folder");
}

}  // namespace

mode_t usualMode(mode_t wanted) {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return wanted & ~mask;
}

UnpackedTree::UnpackedTree(const ZipReader& archive, int root, std::uint64_t itemLimit)
    : archive_(archive), root_(root), itemsLeft_(itemLimit) {}

Status UnpackedTree::make(const Entry& entry) {
  // What the archive says of the folder of all is not taken.
  if (entry.path.empty()) return {};
  if (entry.kind == EntryKind::folder) return makeFolder(entry);
  return entry.kind == EntryKind::link ? makeLink(entry) : makeFile(entry);
}

// False, with errno set, when there are as many as there may be.
bool UnpackedTree::countItem() {
  errno = EFBIG;
  return itemsLeft_ > 0 && itemsLeft_-- > 0;
}

// The folder and those above it are made when they are not there. Without a descriptor, and with
// errno set, when that fails.
posix::FileDescriptor UnpackedTree::openFolder(const std::string& path) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY;
  if (path.empty()) return openBeneath(root_, ".", kFlags);
  posix::FileDescriptor folder = openBeneath(root_, path, kFlags);
  if (folder || errno != ENOENT || !makeFolderAt(path)) return folder;
  return openBeneath(root_, path, kFlags);
}

bool UnpackedTree::makeFolderAt(const std::string& path) {
  const posix::FileDescriptor parent = openFolder(parentPath(path));
  if (!parent || !countItem()) return false;
  if (::mkdirat(parent.get(), nameIn(path).c_str(), kOwnFolder) != 0) return false;
  folders_[path].modified = std::time(nullptr);
  return true;
}

Status UnpackedTree::makeFolder(const Entry& entry) {
  if (!openFolder(entry.path)) return statusFromErrno(errno, entry.path);
  folders_[entry.path] = entry;
  return {};
}

Status UnpackedTree::makeFile(const Entry& entry) {
  if (!openFolder(parentPath(entry.path)) || !countItem()) {
    return statusFromErrno(errno, entry.path);
  }
  const posix::FileDescriptor file =
      openBeneath(root_, entry.path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  if (!file) return statusFromErrno(errno, entry.path);
  Status read = archive_.read(entry, [&](std::string_view bytes) {
    return platform::statusFromErrno(posix::writeAll(file.get(), bytes).error);
  });
  if (!read.ok()) return read;
  return describe(file, entry, 0666) ? Status() : statusFromErrno(errno, entry.path);
}

// static
bool UnpackedTree::describe(const posix::FileDescriptor& item, const Entry& entry,
                            mode_t wantedMode) {
  timespec times[2];
  timesOf(entry, times);
  const mode_t mode = entry.permissions.value_or(usualMode(wantedMode));
  return ::futimens(item.get(), times) == 0 && ::fchmod(item.get(), mode) == 0;
}

Status UnpackedTree::linkTarget(const Entry& entry, std::string& target) const {
  if (entry.size >= PATH_MAX) return statusFromErrno(ENAMETOOLONG, entry.path);
  Status read = archive_.read(entry, [&](std::string_view bytes) {
    target += bytes;
    return Status();
  });
  if (!read.ok()) return read;
  const bool whole = !target.empty() && target.find('\0') == std::string::npos;
  return whole && !namesOutside(entry.path, target) ? Status() : refusedLink(entry.path);
}

Status UnpackedTree::makeLink(const Entry& entry) {
  std::string target;
  if (Status status = linkTarget(entry, target); !status.ok()) return status;
  const posix::FileDescriptor folder = openFolder(parentPath(entry.path));
  const std::string name = nameIn(entry.path);
  timespec times[2];
  timesOf(entry, times);
  if (!folder || !countItem() || ::symlinkat(target.c_str(), folder.get(), name.c_str()) != 0 ||
      ::utimensat(folder.get(), name.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
    return statusFromErrno(errno, entry.path);
  }
  links_.push_back(entry.path);
  return {};
}

Status UnpackedTree::finish() {
  for (const std::string& link : links_) {
    if (leavesRoot(root_, link)) return refusedLink(link);
  }
  for (const auto& [path, entry] : folders_) {
    const posix::FileDescriptor folder = openFolder(path);
    if (!folder || !describe(folder, entry, 0777)) return statusFromErrno(errno, path);
  }
  return {};
}

}  // namespace archiver
