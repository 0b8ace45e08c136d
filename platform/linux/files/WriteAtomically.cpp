#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/FileSystem.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/files/Location.h"
#include "platform/linux/files/TemporaryName.h"
#include "platform/linux/users/ConsoleHome.h"
#include "posix/WriteAll.h"

namespace platform::file_system {
namespace {

Location locateInConsoleHome(const PathInHome& path) {
  Location location;
  location.folder.reset(::open(path.home.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (std::size_t i = 0; location && i + 1 < path.components.size(); ++i) {
    location.folder = descend(location.folder, path.components[i]);
  }
  location.name = path.components.back();
  return location;
}

bool takePermissions(const Location& location, int file) {
  struct stat replaced {};
  if (::fstatat(location.descriptor(), location.name.c_str(), &replaced, AT_SYMLINK_NOFOLLOW) !=
          0 ||
      !S_ISREG(replaced.st_mode)) {
    return true;
  }
  return ::fchmod(file, replaced.st_mode & 0777) == 0;
}

// Makes the file `temporary` beside the location; after a failure it may be there. 0 or an error
// number.
int writeBeside(const Location& location, const std::string& temporary, std::string_view contents) {
  const posix::FileDescriptor file(::openat(location.descriptor(), temporary.c_str(),
                                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                            0666));
  if (!file) return errno;
  if (const int error = posix::writeAll(file.get(), contents).error; error != 0) return error;
  const bool complete =
      takePermissions(location, file.get()) && (contents.empty() || ::fsync(file.get()) == 0);
  return complete ? 0 : errno;
}

int replaceWhole(const Location& location, std::string_view contents) {
  const std::string temporary = temporaryName("writing");
  int error = writeBeside(location, temporary, contents);
  if (error == 0 && ::renameat(location.descriptor(), temporary.c_str(), location.descriptor(),
                               location.name.c_str()) != 0) {
    error = errno;
  }
  if (error != 0) ::unlinkat(location.descriptor(), temporary.c_str(), 0);
  return error;
}

}  // namespace

Status writeAtomically(const std::string& path, std::string_view contents) {
  const auto inHome = pathInConsoleHome(path);
  const Location location = inHome ? locateInConsoleHome(*inHome) : locate(path);
  if (!location) return statusFromErrno(errno, path);
  if (!inHome) return statusFromErrno(replaceWhole(location, contents), path);

  const ActingAsOwner owner(location.folder);
  return statusFromErrno(owner.ok() ? replaceWhole(location, contents) : errno, path);
}

}  // namespace platform::file_system
