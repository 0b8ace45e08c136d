#include <sys/stat.h>

#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/users/ConsoleHome.h"

namespace platform::file_system {
namespace {

constexpr mode_t kDefaultMode = 0777;

// 0 or an error number. A directory that is there already, or that somebody else makes meanwhile,
// is as good as one made here.
int makeOne(const std::string& path) {
  if (::mkdir(path.c_str(), kDefaultMode) == 0) return 0;
  const int error = errno;
  return error == EEXIST && isDirectory(path) ? 0 : error;
}

}  // namespace

Status createDirectory(const std::string& path) {
  if (path.empty()) return statusFromErrno(ENOENT);
  if (const auto inHome = pathInConsoleHome(path)) {
    return descendOrMakeAll(*inHome, kDefaultMode) ? Status() : statusFromErrno(errno, path);
  }

  std::vector<std::string> missing;
  std::string next = path;
  int error = makeOne(next);
  while (error == ENOENT && next != path::deletingLastComponent(next)) {
    missing.push_back(next);
    next = path::deletingLastComponent(next);
    error = makeOne(next);
  }
  while (error == 0 && !missing.empty()) {
    error = makeOne(missing.back());
    missing.pop_back();
  }
  return error == 0 ? Status() : statusFromErrno(error, path);
}

}  // namespace platform::file_system
