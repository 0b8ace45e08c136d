#include "platform/linux/trash/TrashFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <vector>

#include "platform/Directories.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/linux/users/ConsoleHome.h"

namespace platform {
namespace {

constexpr char kDoor[] = ".Trash";
constexpr char kFiles[] = "files";
constexpr char kInformation[] = "info";
constexpr mode_t kClosed = S_IRWXU;
const std::vector<std::string> kHomeTrash = {".local", "share", "Trash", kFiles};

// Then an item still goes where there is a folder: a move takes less room than a folder does.
bool hasNoRoom(int error) {
  return error == ENOSPC || error == EDQUOT;
}

posix::FileDescriptor openFolder(const std::string& path) {
  return posix::FileDescriptor(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

std::string joined(const std::vector<std::string>& components) {
  std::string path;
  for (const std::string& component : components) {
    if (!path.empty()) path += '/';
    path += component;
  }
  return path;
}

// The console user's home, gone into as the superuser.
class SuperusersView {
 public:
  explicit SuperusersView(const PathInHome& path)
      : home_(openFolder(path.home)), homePath_(path.home), components_(path.components) {}

  TrashFolder open() const {
    if (!home_) return {};
    if (components_.size() != 1 || components_.front() != kDoor) return ordinary();
    struct stat status {};
    if (::fstatat(home_.get(), kDoor, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return errno == ENOENT ? make() : TrashFolder();
    }
    if (!S_ISLNK(status.st_mode)) return ordinary();
    const auto target = doorTarget();
    if (target) return behind(*target);
    errno = ELOOP;
    return {};
  }

 private:
  TrashFolder ordinary() const {
    TrashFolder trash;
    const posix::FileDescriptor* folder = &home_;
    for (const std::string& name : components_) {
      trash.files = descend(*folder, name);
      if (!trash.files) return {};
      folder = &trash.files;
    }
    return trash;
  }

  TrashFolder make() const {
    TrashFolder trash = behind(kHomeTrash);
    if (trash) return makeDoor() || hasNoRoom(errno) ? std::move(trash) : TrashFolder();
    if (hasNoRoom(errno)) trash.files = descendOrMake(home_, kDoor, kClosed);
    return trash;
  }

  bool makeDoor() const {
    const ActingAsOwner owner(home_);
    return owner.ok() && ::symlinkat(joined(kHomeTrash).c_str(), home_.get(), kDoor) == 0;
  }

  // The way from the home to where the door leads; none when it is not the trash of this home.
  std::optional<std::vector<std::string>> doorTarget() const {
    std::string target(4096, '\0');
    const ssize_t length = ::readlinkat(home_.get(), kDoor, target.data(), target.size());
    target.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    if (!target.starts_with('/')) target = path::appending(homePath_, target);
    const auto inHome = pathInConsoleHome(target);
    if (!inHome || inHome->components.size() < 2 || inHome->components.back() != kFiles) {
      return std::nullopt;
    }
    return inHome->components;
  }

  TrashFolder behind(const std::vector<std::string>& way) const {
    posix::FileDescriptor folder(::fcntl(home_.get(), F_DUPFD_CLOEXEC, 0));
    for (std::size_t i = 0; folder && i + 1 < way.size(); ++i) {
      folder = descendOrMake(folder, way[i], kClosed);
    }
    if (!folder) return {};
    TrashFolder trash;
    trash.files = descendOrMake(folder, kFiles, kClosed);
    if (!trash.files) return trash;
    trash.information = descendOrMake(folder, kInformation, kClosed);
    return trash.information || hasNoRoom(errno) ? std::move(trash) : TrashFolder();
  }

  posix::FileDescriptor home_;
  const std::string& homePath_;
  const std::vector<std::string>& components_;
};

std::string dataHome(const std::string& home) {
  const char* configured = std::getenv("XDG_DATA_HOME");
  if (configured != nullptr && *configured == '/' && home == directories::homeDirectory()) {
    return configured;
  }
  return path::appending(home, ".local/share");
}

bool makeClosedFolder(const std::string& path) {
  return ::mkdir(path.c_str(), kClosed) == 0 || errno == EEXIST;
}

// Makes the trash whose folder of files is `files`.
bool makeTrash(const std::string& files) {
  const std::string trash = path::deletingLastComponent(files);
  const Status parent = file_system::createDirectory(path::deletingLastComponent(trash));
  if (!parent.ok()) errno = parent.code();
  if (!parent.ok() || !makeClosedFolder(trash)) return false;
  if (!makeClosedFolder(files)) {
    // An empty trash takes the room of the folder that can stand in for it.
    const int error = errno;
    ::rmdir(trash.c_str());
    errno = error;
    return false;
  }
  return makeClosedFolder(path::appending(trash, kInformation)) || hasNoRoom(errno);
}

bool isMissing(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

// What the door at `path` leads to, as an absolute path. Makes the door when nothing is there; none
// when it is no door or cannot be made.
std::optional<std::string> throughDoor(const std::string& path) {
  const std::string home = path::deletingLastComponent(path);
  if (const auto target = file_system::symbolicLinkTarget(path)) {
    return target->starts_with('/') ? *target : path::appending(home, *target);
  }
  if (path::lastComponent(path) != kDoor || !isMissing(path)) return std::nullopt;
  const std::string files = path::appending(dataHome(home), "Trash/files");
  if (!makeTrash(files)) return std::nullopt;
  if (::symlink(files.c_str(), path.c_str()) != 0 && !hasNoRoom(errno)) return std::nullopt;
  return files;
}

// The folder that stands in for a trash for whose folders there is no room.
void makeOrdinaryFolder(const std::string& path) {
  if (path::lastComponent(path) == kDoor && isMissing(path)) makeClosedFolder(path);
}

TrashFolder openAsUser(const std::string& path) {
  TrashFolder trash;
  const std::optional<std::string> files = throughDoor(path);
  if (!files && hasNoRoom(errno)) makeOrdinaryFolder(path);
  const bool door = files && path::lastComponent(*files) == kFiles;
  if (door && !makeTrash(*files)) return trash;
  trash.files = openFolder(door ? *files : path);
  if (!trash.files || !door) return trash;
  trash.information.reset(::openat(trash.files.get(), "../info", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!trash.information && errno != ENOENT) trash.files.reset();
  return trash;
}

}  // namespace

TrashFolder openTrash(const std::string& path) {
  const auto inHome = pathInConsoleHome(path);
  return inHome ? SuperusersView(*inHome).open() : openAsUser(path);
}

}  // namespace platform
