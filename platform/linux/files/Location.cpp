#include "platform/linux/files/Location.h"

#include <fcntl.h>

#include <utility>

#include "platform/FileSystem.h"
#include "platform/Path.h"

namespace platform {

Location locate(const std::string& path) {
  Location location;
  location.name = path::lastComponent(path);
  if (!path::namesItem(path)) {
    errno = path.empty() ? ENOENT : EINVAL;
    return location;
  }
  const std::string folder = path::deletingLastComponent(path);
  location.folder.reset(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return location;
}

Location locationIn(int folder, std::string name) {
  return {posix::FileDescriptor(::fcntl(folder, F_DUPFD_CLOEXEC, 0)), std::move(name)};
}

int statusOf(const Location& location, struct stat& status) {
  return ::fstatat(location.descriptor(), location.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0
             ? 0
             : errno;
}

bool isSameLocation(const Location& one, const Location& other) {
  struct stat first {};
  struct stat second {};
  return one.name == other.name && ::fstat(one.descriptor(), &first) == 0 &&
         ::fstat(other.descriptor(), &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

std::string pathOf(int folder, const std::string& name) {
  const auto path = file_system::symbolicLinkTarget("/proc/self/fd/" + std::to_string(folder));
  return path ? path::appending(*path, name) : name;
}

std::string pathOf(const Location& location) {
  return pathOf(location.descriptor(), location.name);
}

}  // namespace platform
