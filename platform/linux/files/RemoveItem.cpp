#include "platform/FileSystem.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/files/RemoveTree.h"

namespace platform::file_system {

Status remove(const std::string& path) {
  const Location location = locate(path);
  return location ? removeTree(location) : statusFromErrno(errno, path);
}

}  // namespace platform::file_system
