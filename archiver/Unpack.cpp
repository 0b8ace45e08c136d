#include "archiver/Unpack.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "archiver/UnpackedTree.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/files/StagedItem.h"

namespace archiver {
namespace {

using platform::Location;
using platform::Status;
using platform::statusFromErrno;

// Without a descriptor, and with errno set, when it could not be made.
posix::FileDescriptor makeClosedFolder(const Location& location) {
  if (::mkdirat(location.descriptor(), location.name.c_str(), S_IRWXU) != 0) return {};
  return posix::FileDescriptor(::openat(location.descriptor(), location.name.c_str(),
                                        O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

posix::FileDescriptor openArchive(const std::string& path, struct stat& status) {
  posix::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file || ::fstat(file.get(), &status) != 0) return {};
  if (S_ISREG(status.st_mode)) return file;
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return {};
}

}  // namespace

Status unpackInto(const ZipReader& archive, int folder, const Bounds& bounds) {
  std::vector<Entry> entries;
  if (Status status = inspect(archive, bounds, entries); !status.ok()) return status;
  UnpackedTree tree(archive, folder, bounds.items);
  for (const Entry& entry : entries) {
    if (Status status = tree.make(entry); !status.ok()) return status;
  }
  return tree.finish();
}

Status unpack(const std::string& archive, const std::string& folder) {
  struct stat found {};
  posix::FileDescriptor file = openArchive(archive, found);
  if (!file) return statusFromErrno(errno, archive);
  const ZipReader reader(std::move(file));
  if (!reader.status().ok()) return reader.status();

  const Location to = platform::locate(folder);
  if (!to) return statusFromErrno(errno, folder);
  platform::StagedItem staged(to, "unpacking");
  if (!staged.status().ok()) return staged.status();
  const posix::FileDescriptor root = makeClosedFolder(staged.location());
  if (!root) return statusFromErrno(errno, folder);
  const auto size = static_cast<std::uint64_t>(found.st_size);
  if (Status status = unpackInto(reader, root.get(), boundsFor(root.get(), size)); !status.ok()) {
    return status;
  }
  if (::fchmod(root.get(), usualMode(0777)) != 0) return statusFromErrno(errno, folder);
  return staged.putInPlace();
}

}  // namespace archiver
