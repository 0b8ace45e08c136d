#include "platform/linux/trash/LeftoverInformation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string>
#include <vector>

#include "platform/linux/files/DirectoryReader.h"
#include "platform/linux/trash/TrashInformation.h"

namespace platform {
namespace {

constexpr std::time_t kOld = 24 * 60 * 60;

bool isMissing(int folder, const std::string& name) {
  return ::faccessat(folder, name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
}

bool isOldFile(int folder, const std::string& name) {
  struct stat status {};
  return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(status.st_mode) && status.st_mtime < std::time(nullptr) - kOld;
}

}  // namespace

void removeLeftoverInformation(const TrashFolder& trash) {
  if (!trash.information) return;
  const posix::FileDescriptor folder(
      ::openat(trash.information.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return;
  std::vector<std::string> leftovers;
  DirectoryReader reader(folder.get());
  while (const auto entry = reader.next()) {
    const std::string item = itemOfTrashInformation(entry->name);
    if (item.empty() || !isMissing(trash.files.get(), item)) continue;
    std::string name(entry->name);
    if (isOldFile(folder.get(), name)) leftovers.push_back(std::move(name));
  }
  for (const std::string& name : leftovers) ::unlinkat(folder.get(), name.c_str(), 0);
}

}  // namespace platform
