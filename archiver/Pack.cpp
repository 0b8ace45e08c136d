#include "archiver/Pack.h"

#include <fcntl.h>

#include "archiver/SourceWalk.h"
#include "archiver/ZipWriter.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/files/StagedItem.h"

namespace archiver {
namespace {

using platform::Location;
using platform::Status;
using platform::statusFromErrno;

// A path that leads to that very folder, whatever becomes of its own.
std::string pinnedPath(const Location& location) {
  return "/proc/self/fd/" + std::to_string(location.descriptor()) + "/" + location.name;
}

Status writeToDisk(const Location& file) {
  const posix::FileDescriptor open(
      ::openat(file.descriptor(), file.name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  return open && ::fsync(open.get()) == 0 ? Status() : statusFromErrno(errno);
}

Status write(const Location& source, bool keepParent, const Location& archive) {
  ZipWriter writer(pinnedPath(archive), source.descriptor());
  const auto add = [&](const SourceItem& item) { return writer.add(item); };
  if (Status status = walkSource(source, keepParent, add); !status.ok()) return status;
  const Status status = writer.finish();
  return status.ok() ? writeToDisk(archive) : status;
}

}  // namespace

Status pack(const std::string& source, const std::string& archive, bool keepParent) {
  const Location from = platform::locate(source);
  if (!from) return statusFromErrno(errno, source);
  const Location to = platform::locate(archive);
  if (!to) return statusFromErrno(errno, archive);
  platform::StagedItem staged(to, "archiving", platform::StagedItem::Existing::replaced);
  if (!staged.status().ok()) return staged.status();
  const Status status = write(from, keepParent, staged.location());
  return status.ok() ? staged.putInPlace() : status;
}

}  // namespace archiver
