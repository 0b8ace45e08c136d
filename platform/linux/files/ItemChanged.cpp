#include "platform/ItemChanged.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "platform/ProcessInfo.h"
#include "platform/linux/SystemError.h"
#include "posix/FileDescriptor.h"

namespace platform {
namespace {

constexpr mode_t kPermissionBits = 07777;

// Giving the permissions that an item has is an attribute event that changes nothing. Not for a
// link, which has none, nor where the system would drop the set-group-ID bit of an item whose group
// the user is not in: there, the times are what is given once more.
int touchPermissionsOrTimes(const posix::FileDescriptor& item, const struct stat& status) {
  const bool mayLoseBit = (status.st_mode & S_ISGID) != 0 && !process_info::isSuperuser();
  if (!S_ISLNK(status.st_mode) && !mayLoseBit) {
    const std::string path = "/proc/self/fd/" + std::to_string(item.get());
    return ::chmod(path.c_str(), status.st_mode & kPermissionBits);
  }
  const timespec times[2] = {status.st_atim, status.st_mtim};
  return ::utimensat(item.get(), "", times, AT_EMPTY_PATH);
}

}  // namespace

Status notifyItemChanged(const FileReference& reference) {
  const posix::FileDescriptor item(
      ::open(reference.path().c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  const bool done =
      item && ::fstat(item.get(), &status) == 0 && touchPermissionsOrTimes(item, status) == 0;
  return done ? Status() : statusFromErrno(errno);
}

}  // namespace platform
