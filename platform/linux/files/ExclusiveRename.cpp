#include "platform/linux/files/ExclusiveRename.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>

#include <cstdio>

namespace platform {
namespace {

int renameInSteps(const Location& from, const Location& to) {
  struct stat item {};
  struct stat taken {};
  if (const int error = statusOf(from, item); error != 0) return error;
  if (statusOf(to, taken) == 0) return EEXIST;
  const bool linked = !S_ISDIR(item.st_mode) && ::linkat(from.descriptor(), from.name.c_str(),
                                                         to.descriptor(), to.name.c_str(), 0) == 0;
  if (linked) {
    if (::unlinkat(from.descriptor(), from.name.c_str(), 0) == 0) return 0;
    const int error = errno;
    ::unlinkat(to.descriptor(), to.name.c_str(), 0);
    return error;
  }
  if (!S_ISDIR(item.st_mode) && errno == EEXIST) return EEXIST;
  return ::renameat(from.descriptor(), from.name.c_str(), to.descriptor(), to.name.c_str()) == 0
             ? 0
             : errno;
}

}  // namespace

int renameExclusively(const Location& from, const Location& to) {
  if (::renameat2(from.descriptor(), from.name.c_str(), to.descriptor(), to.name.c_str(),
                  RENAME_NOREPLACE) == 0) {
    return 0;
  }
  // What a file system without the flag answers, and what moving a folder into itself answers; the
  // steps tell the two apart.
  return errno == EINVAL || errno == ENOSYS ? renameInSteps(from, to) : errno;
}

}  // namespace platform
