#include "archiver/Beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>

namespace archiver {
namespace {

posix::FileDescriptor openResolved(int root, const std::string& path, open_how how) {
  for (;;) {
    posix::FileDescriptor item(
        static_cast<int>(::syscall(SYS_openat2, root, path.c_str(), &how, sizeof how)));
    // The kernel gives up when something is renamed beneath it, and asks to be called again.
    if (item || errno != EAGAIN) return item;
  }
}

}  // namespace

posix::FileDescriptor openBeneath(int root, const std::string& path, int flags, mode_t mode) {
  open_how how{};
  how.flags = static_cast<unsigned>(flags) | O_CLOEXEC;
  how.mode = mode;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  return openResolved(root, path, how);
}

bool leavesRoot(int root, const std::string& path) {
  open_how how{};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH;
  return !openResolved(root, path, how) && errno == EXDEV;
}

}  // namespace archiver
