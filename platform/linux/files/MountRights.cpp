#include "platform/linux/files/MountRights.h"

#include <linux/magic.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

namespace platform {

MountRights rightsOfMount(int item) {
  struct statfs system {};
  if (::fstatfs(item, &system) != 0 || system.f_type == FUSE_SUPER_MAGIC) return {};
  const auto flags = static_cast<unsigned long>(system.f_flags);
  return {.changeIdentity = (flags & ST_NOSUID) == 0, .devices = (flags & ST_NODEV) == 0};
}

}  // namespace platform
