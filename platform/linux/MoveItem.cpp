#include <fcntl.h>
#include <sys/stat.h>

#include "platform/FileSystem.h"
#include "platform/linux/ExclusiveRename.h"
#include "platform/linux/SystemError.h"

namespace platform::file_system {
namespace {

int statusOf(const Location& location) {
  struct stat status {};
  return ::fstatat(location.descriptor(), location.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0
             ? 0
             : errno;
}

}  // namespace

Status move(const std::string& source, const std::string& destination) {
  const Location from = locate(source);
  if (!from) return statusFromErrno(errno, source);
  if (const int error = statusOf(from); error != 0) return statusFromErrno(error, source);
  const Location to = locate(destination);
  if (!to) return statusFromErrno(errno, destination);
  if (isSameLocation(from, to)) return {};
  return statusFromErrno(renameExclusively(from, to), destination);
}

}  // namespace platform::file_system
