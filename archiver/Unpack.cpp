#include "archiver/Unpack.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "archiver/MergeTree.h"
#include "archiver/UnpackedTree.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/files/StagedItem.h"
#include "platform/linux/files/TemporaryName.h"
#include "platform/linux/files/TreeWalk.h"

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

// Unpacks under the hidden name; its folder, or none and the failure in `status`.
posix::FileDescriptor unpackHidden(const ZipReader& archive, const platform::StagedItem& staged,
                                   std::uint64_t size, Status& status) {
  status = staged.status();
  if (!status.ok()) return {};
  posix::FileDescriptor root = makeClosedFolder(staged.location());
  status = root ? unpackInto(archive, root.get(), boundsFor(root.get(), size))
                : statusFromErrno(errno, pathOf(staged.location()));
  return root;
}

Status unpackNew(const ZipReader& archive, const Location& to, std::uint64_t size) {
  platform::StagedItem staged(to, "unpacking");
  Status status;
  const posix::FileDescriptor root = unpackHidden(archive, staged, size, status);
  if (!status.ok()) return status;
  if (::fchmod(root.get(), usualMode(0777)) != 0) return statusFromErrno(errno, pathOf(to));
  return staged.putInPlace();
}

// The folder around it may be one that the user may not write, so this grows inside. It never gets
// a name of its own: its items do.
Status unpackOver(const ZipReader& archive, int folder, std::uint64_t size) {
  const Location within = platform::locationIn(folder, platform::temporaryName("unpacking"));
  if (!within) return statusFromErrno(errno);
  platform::StagedItem staged(within, "unpacking");
  Status status;
  const posix::FileDescriptor root = unpackHidden(archive, staged, size, status);
  return status.ok() ? mergeTree(staged.location(), folder) : status;
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
  const auto size = static_cast<std::uint64_t>(found.st_size);
  const posix::FileDescriptor existing = platform::openFolder(to.descriptor(), to.name);
  return existing ? unpackOver(reader, existing.get(), size) : unpackNew(reader, to, size);
}

}  // namespace archiver
