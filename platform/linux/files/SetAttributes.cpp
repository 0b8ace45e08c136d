#include <fcntl.h>
#include <linux/fs.h>
#include <linux/stat.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include "platform/FileSystem.h"
#include "platform/linux/SystemError.h"
#include "posix/FileDescriptor.h"

namespace platform::file_system {
namespace {

constexpr std::uint32_t kPermissionBits = 07777;

// 0 or an error number. Only files and folders are opened: opening a device may do something.
int changeImmutableFlag(const std::string& path, bool immutable) {
  const posix::FileDescriptor item(
      ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  if (!item) return errno;
  int flags = 0;
  if (::ioctl(item.get(), FS_IOC_GETFLAGS, &flags) != 0) return errno == ENOTTY ? ENOTSUP : errno;
  const int wanted = immutable ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
  if (wanted == flags || ::ioctl(item.get(), FS_IOC_SETFLAGS, &wanted) == 0) return 0;
  return errno == ENOTTY ? ENOTSUP : errno;
}

}  // namespace

Status setImmutable(const std::string& path, bool immutable) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &status) != 0) {
    return statusFromErrno(errno);
  }
  const bool known = (status.stx_attributes_mask & STATX_ATTR_IMMUTABLE) != 0;
  const bool present = (status.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
  if (known && present == immutable) return {};
  if (!S_ISREG(status.stx_mode) && !S_ISDIR(status.stx_mode)) return statusFromErrno(ENOTSUP);
  return statusFromErrno(changeImmutableFlag(path, immutable));
}

Status setPermissions(const std::string& path, std::uint32_t permissions) {
  return ::chmod(path.c_str(), permissions & kPermissionBits) == 0 ? Status()
                                                                   : statusFromErrno(errno);
}

Status setCreationDate(const std::string& path, std::chrono::system_clock::time_point) {
  // No system call sets the time of an inode's birth.
  return statusFromErrno(exists(path) ? ENOTSUP : ENOENT);
}

}  // namespace platform::file_system
