#include "elevator/View.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>

#include "channel/Way.h"
#include "posix/FileDescriptor.h"

namespace elevator {
namespace {

using channel::Way;

constexpr char kOrdinary[] = ".qv-ordinary";
constexpr char kUnfollowed[] = ".qv-unfollowed";

// What a program needs to start is reached through links there.
constexpr std::array<std::string_view, 9> kSystemFolders = {"bin",  "dev",  "etc", "gnu", "nix",
                                                            "proc", "sbin", "sys", "usr"};

std::string parentOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

// The first name of an absolute path.
std::string topOf(const std::string& path) {
  return path.substr(1, path.find('/', 1) - 1);
}

bool isSystemFolder(const std::string& name) {
  return name.starts_with("lib") || std::ranges::find(kSystemFolders, name) != kSystemFolders.end();
}

bool isProperlyInside(const std::string& path, const std::string& folder) {
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

// A folder as the words have it, and where it is.
struct Door {
  std::string written;
  std::string resolved;
};

// An item that is meant itself stands in the folder to which the door leads.
Door doorTo(const Way& way) {
  if (way.isEntered) return {way.written, way.resolved};
  return {parentOf(way.written), parentOf(way.resolved)};
}

// Where a way leads through a link out of a folder that another way needs as it is, its word
// becomes the place where it leads.
void straighten(std::vector<Way>& ways, std::vector<std::string>& words) {
  for (Way& way : ways) {
    const std::string written = doorTo(way).written;
    const bool isBehind = std::ranges::any_of(ways, [&](const Way& other) {
      return &other != &way && isProperlyInside(written, doorTo(other).written);
    });
    if (!isBehind || way.written == way.resolved) continue;
    words[way.word] = way.written = way.resolved;
  }
}

posix::FileDescriptor copyOfMounts(const std::string& path) {
  return posix::FileDescriptor(
      ::open_tree(AT_FDCWD, path.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE));
}

bool stopFollowing(const posix::FileDescriptor& mounts) {
  mount_attr attributes{};
  attributes.attr_set = MOUNT_ATTR_NOSYMFOLLOW;
  attributes.propagation = MS_PRIVATE;
  return mounts && ::mount_setattr(mounts.get(), "", AT_EMPTY_PATH | AT_RECURSIVE, &attributes,
                                   sizeof attributes) == 0;
}

posix::FileDescriptor emptyRoot() {
  const posix::FileDescriptor system(::fsopen("tmpfs", FSOPEN_CLOEXEC));
  if (!system || ::fsconfig(system.get(), FSCONFIG_SET_STRING, "mode", "0755", 0) != 0 ||
      ::fsconfig(system.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0) {
    return {};
  }
  return posix::FileDescriptor(::fsmount(system.get(), FSMOUNT_CLOEXEC, 0));
}

bool leaveOthersAlone() {
  return ::unshare(CLONE_NEWNS) == 0 &&
         ::mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0;
}

bool attach(const posix::FileDescriptor& mounts, int folder, const char* name) {
  return ::move_mount(mounts.get(), "", folder, name, MOVE_MOUNT_F_EMPTY_PATH) == 0;
}

int closeAt(int root, const std::string& place, const std::string& border) {
  const posix::FileDescriptor folder = copyOfMounts(border);
  return stopFollowing(folder) && attach(folder, root, place.c_str()) ? 0 : errno;
}

// The new root, while it is made. Each step answers 0 or an error number.
class Root {
 public:
  int make() {
    if (!leaveOthersAlone()) return errno;
    const posix::FileDescriptor ordinary = copyOfMounts("/");
    const posix::FileDescriptor unfollowed = copyOfMounts("/");
    root_ = emptyRoot();
    const bool made =
        ordinary && stopFollowing(unfollowed) && root_ && attach(root_, AT_FDCWD, "/") &&
        ::mkdirat(root_.get(), kOrdinary, 0755) == 0 &&
        ::mkdirat(root_.get(), kUnfollowed, 0755) == 0 &&
        attach(ordinary, root_.get(), kOrdinary) && attach(unfollowed, root_.get(), kUnfollowed);
    return made ? 0 : errno;
  }

  // A link at `written` to where `resolved` is, without following anything on the way.
  int lead(const Door& door) {
    std::string folder;
    for (std::size_t end = door.written.find('/', 1); end != std::string::npos;
         end = door.written.find('/', end + 1)) {
      folder = door.written.substr(1, end - 1);
      const int made = ::mkdirat(root_.get(), folder.c_str(), 0755);
      if (made != 0 && errno != EEXIST) return errno;
      if (made == 0) made_.push_back(folder);
    }
    const std::string target = std::string("/") + kUnfollowed + door.resolved;
    const int made = ::symlinkat(target.c_str(), root_.get(), door.written.c_str() + 1);
    return made == 0 || errno == EEXIST ? 0 : errno;
  }

  // Where a program's own files are, too, links are only left alone in the folder that somebody
  // else may change.
  int close(const std::string& border) { return closeAt(root_.get(), kOrdinary + border, border); }

  // What else stands in the root, and in the folders of root's that were made; to be called last.
  int leadTheRest() {
    int status = leadTheRestOf("", kOrdinary);
    for (const std::string& folder : made_) {
      const bool isRoots = channel::wayTo("/" + folder, channel::End::meant).isRootsAlone();
      if (status == 0 && isRoots) status = leadTheRestOf(folder + "/", kUnfollowed);
    }
    return status;
  }

  int enter() const {
    return ::fchdir(root_.get()) == 0 && ::chroot(".") == 0 && ::chdir("/") == 0 ? 0 : errno;
  }

 private:
  int leadTheRestOf(const std::string& folder, const char* tree) {
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(("/" + folder).c_str()), ::closedir);
    if (stream == nullptr) return errno;
    while (const dirent* entry = ::readdir(stream.get())) {
      const std::string place = folder + entry->d_name;
      const std::string target = std::string("/").append(tree).append("/").append(place);
      if (::symlinkat(target.c_str(), root_.get(), place.c_str()) != 0 && errno != EEXIST) {
        return errno;
      }
    }
    return 0;
  }

  posix::FileDescriptor root_;
  // The folders in it, without the slash in front.
  std::vector<std::string> made_;
};

int leadAlong(Root& root, const std::vector<Way>& ways) {
  for (const Way& way : ways) {
    const std::string top = topOf(way.written);
    const bool isStraight = std::ranges::none_of(ways, [&top](const Way& other) {
      return topOf(other.written) == top && other.written != other.resolved;
    });
    int status = 0;
    if (!isSystemFolder(top)) {
      status = root.lead(isStraight ? Door{"/" + top, "/" + top} : doorTo(way));
    } else if (!way.border.empty()) {
      status = root.close(way.border);
    }
    if (status != 0) return status;
  }
  return 0;
}

// What stands in the root itself can be reached nowhere else, so there the root stays what it is. A
// move out of a folder that is closed then copies.
int closeBorders(const std::vector<Way>& ways, std::vector<std::string>& words) {
  if (!leaveOthersAlone()) return errno;
  for (const Way& way : ways) {
    const int status = way.border.empty() ? 0 : closeAt(AT_FDCWD, way.border, way.border);
    if (status != 0) return status;
    words[way.word] = way.resolved;
  }
  return 0;
}

int enter(std::vector<Way>& ways, std::vector<std::string>& words) {
  if (std::ranges::any_of(ways, [](const Way& way) { return doorTo(way).written.empty(); })) {
    return closeBorders(ways, words);
  }
  std::vector<std::string> straightened = words;
  straighten(ways, straightened);
  Root root;
  int status = root.make();
  if (status == 0) status = leadAlong(root, ways);
  if (status == 0) status = root.leadTheRest();
  if (status == 0) status = root.enter();
  if (status == 0) words = std::move(straightened);
  return status;
}

}  // namespace

int enterView(std::vector<std::string>& words) {
  if (!channel::isFileTool(words.front())) return 0;
  std::vector<Way> ways = channel::waysOf(words);
  if (std::ranges::any_of(ways, [](const Way& way) { return way.status != 0; })) return ELOOP;
  const bool isRootsAlone = std::ranges::all_of(ways, &Way::isRootsAlone);
  // Only a copy into a folder that is there follows what it finds deeper inside.
  if (isRootsAlone && !words.front().ends_with("/cp")) return 0;
  return enter(ways, words) == 0 || isRootsAlone ? 0 : EPERM;
}

}  // namespace elevator
