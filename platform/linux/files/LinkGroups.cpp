#include "platform/linux/files/LinkGroups.h"

#include <fcntl.h>

#include "platform/linux/files/RemoveTree.h"
#include "platform/linux/files/TemporaryName.h"

namespace platform {
namespace {

std::string identity(const struct stat& item) {
  return std::to_string(item.st_dev) + "-" + std::to_string(item.st_ino);
}

// The file system has no links, or no more for this file: the copy stays a file of its own.
bool cannotLink(int error) {
  return error == EPERM || error == ENOTSUP || error == EMLINK || error == ENOSYS;
}

}  // namespace

int LinkGroups::staging() {
  std::call_once(once_, [this] {
    std::string name = temporaryName("links");
    if (::mkdirat(root_, name.c_str(), S_IRWXU) != 0) return;
    name_ = std::move(name);
    staging_.reset(::openat(root_, name_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  });
  return staging_.get();
}

int LinkGroups::linkToCopy(const struct stat& original, int folder, const std::string& name) {
  const int error =
      ::linkat(staging(), identity(original).c_str(), folder, name.c_str(), 0) == 0 ? 0 : errno;
  return cannotLink(error) || error == EBADF ? ENOENT : error;
}

int LinkGroups::enter(const struct stat& original, int folder, const std::string& name) {
  const std::string key = identity(original);
  if (::linkat(folder, name.c_str(), staging(), key.c_str(), 0) == 0) return 0;
  if (cannotLink(errno)) return 0;
  if (errno != EEXIST) return errno;
  if (::unlinkat(folder, name.c_str(), 0) != 0) return errno;
  return ::linkat(staging(), key.c_str(), folder, name.c_str(), 0) == 0 ? 0 : errno;
}

int LinkGroups::finish() {
  if (name_.empty()) return 0;
  const Location location = locationIn(root_, name_);
  return location ? removeTree(location).code() : errno;
}

}  // namespace platform
