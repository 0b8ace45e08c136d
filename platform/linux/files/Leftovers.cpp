#include "platform/linux/files/Leftovers.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/NoDestructor.h"
#include "platform/linux/files/DirectoryReader.h"
#include "platform/linux/files/Location.h"
#include "platform/linux/files/RemoveTree.h"
#include "platform/linux/files/TemporaryName.h"

namespace platform {
namespace {

constexpr std::time_t kOld = 24 * 60 * 60;
// Of a process that works in more folders the later ones are not looked into.
constexpr std::size_t kMostFolders = 4096;

bool isFirstLook(int folder) {
  using Folders = std::set<std::pair<dev_t, ino_t>>;
  static std::mutex mutex;  // guards the next
  static NoDestructor<Folders> seen;
  struct stat status {};
  if (::fstat(folder, &status) != 0) return false;
  const std::lock_guard lock(mutex);
  return seen->size() < kMostFolders && seen->emplace(status.st_dev, status.st_ino).second;
}

// A finished copy that is about to get its name may have any time of modification.
bool isOldAndOwn(const Location& item, std::time_t now) {
  struct stat status {};
  if (statusOf(item, status) != 0 || status.st_uid != ::geteuid()) return false;
  return std::max(status.st_mtime, status.st_ctime) < now - kOld;
}

std::vector<std::string> temporaryNamesIn(int folder) {
  std::vector<std::string> names;
  DirectoryReader reader(folder);
  while (const auto entry = reader.next()) {
    if (isTemporaryName(entry->name)) names.emplace_back(entry->name);
  }
  return names;
}

}  // namespace

void removeLeftovers(int folder, std::time_t now) {
  if (!isFirstLook(folder)) return;
  const posix::FileDescriptor open(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!open) return;
  for (const std::string& name : temporaryNamesIn(open.get())) {
    const Location item = locationIn(open.get(), name);
    // What cannot be removed stays for the next process to try.
    if (item && isOldAndOwn(item, now))
      static_cast<void>(removeTree(item, LockedFolders::open).ok());
  }
}

}  // namespace platform
