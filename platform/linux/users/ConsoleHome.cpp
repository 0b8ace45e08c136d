#include "platform/linux/users/ConsoleHome.h"

#include <fcntl.h>
#include <sys/fsuid.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/Directories.h"
#include "platform/Path.h"
#include "platform/ProcessInfo.h"

namespace platform {
namespace {

// setfsuid(2) and setfsgid(2) report no errors; asked for an impossible id they answer the present.
constexpr auto kAsk = static_cast<unsigned>(-1);

uid_t fileSystemUser() {
  return static_cast<uid_t>(::setfsuid(kAsk));
}

gid_t fileSystemGroup() {
  return static_cast<gid_t>(::setfsgid(kAsk));
}

std::vector<std::string> plainComponents(const std::string& path) {
  std::vector<std::string> components = path::components(path);
  std::erase_if(components, [](const std::string& name) { return name == "/" || name == "."; });
  return components;
}

}  // namespace

std::optional<PathInHome> pathInConsoleHome(const std::string& path) {
  if (!process_info::isSuperuser()) return std::nullopt;
  const std::optional<std::string> user = directories::consoleUser();
  if (!user) return std::nullopt;
  const std::optional<std::string> home = directories::homeDirectoryForUser(*user);
  if (!home) return std::nullopt;

  const std::vector<std::string> above = plainComponents(*home);
  std::vector<std::string> all = plainComponents(path);
  if (above.empty() || all.size() <= above.size() ||
      !std::equal(above.begin(), above.end(), all.begin()) ||
      std::find(all.begin(), all.end(), "..") != all.end()) {
    return std::nullopt;
  }
  all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(above.size()));
  return PathInHome{*home, std::move(all)};
}

posix::FileDescriptor descend(const posix::FileDescriptor& folder, const std::string& name) {
  return posix::FileDescriptor(
      ::openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

posix::FileDescriptor descendOrMake(const posix::FileDescriptor& folder, const std::string& name,
                                    mode_t mode) {
  posix::FileDescriptor next = descend(folder, name);
  if (next || errno != ENOENT) return next;
  {
    const ActingAsOwner owner(folder);
    if (!owner.ok()) return {};
    if (::mkdirat(folder.get(), name.c_str(), mode) != 0 && errno != EEXIST) return {};
  }
  return descend(folder, name);
}

posix::FileDescriptor descendOrMakeAll(const PathInHome& path, mode_t mode) {
  posix::FileDescriptor folder(::open(path.home.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (const std::string& name : path.components) {
    if (!folder) break;
    folder = descendOrMake(folder, name, mode);
  }
  return folder;
}

ActingAsOwner::ActingAsOwner(const posix::FileDescriptor& folder)
    : userId_(fileSystemUser()), groupId_(fileSystemGroup()) {
  struct stat status {};
  if (!process_info::isSuperuser()) return;
  if (::fstat(folder.get(), &status) != 0) {
    ok_ = false;
    return;
  }
  if (status.st_uid == userId_) return;
  changed_ = true;
  ::setfsgid(status.st_gid);
  ::setfsuid(status.st_uid);
  ok_ = fileSystemUser() == status.st_uid && fileSystemGroup() == status.st_gid;
  if (!ok_) errno = EPERM;
}

ActingAsOwner::~ActingAsOwner() {
  if (!changed_) return;
  const int error = errno;
  ::setfsuid(userId_);
  ::setfsgid(groupId_);
  errno = error;
}

}  // namespace platform
