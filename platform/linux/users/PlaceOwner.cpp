#include "platform/linux/users/PlaceOwner.h"

#include <fcntl.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <fstream>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Path.h"

namespace platform {
namespace {

constexpr int kMostLinks = 40;
constexpr unsigned kWanted = STATX_TYPE | STATX_MODE | STATX_UID | STATX_MNT_ID;

std::uint32_t numberAfter(std::string_view text, std::string_view key) {
  const std::size_t found = text.find(key);
  std::uint32_t number = 0;
  for (std::size_t i = found == text.npos ? text.size() : found + key.size();
       i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    number = number * 10 + static_cast<std::uint32_t>(text[i] - '0');
  }
  return number;
}

// Who answers for the file system of a mount, see proc(5): a program of a person's, or the system.
std::uint32_t ownerOfMount(std::uint64_t id) {
  std::ifstream mounts("/proc/self/mountinfo");
  const std::string start = std::to_string(id) + " ";
  for (std::string line; std::getline(mounts, line);) {
    if (!line.starts_with(start)) continue;
    const std::size_t kind = line.find(" - fuse");
    return kind == line.npos ? 0 : numberAfter(std::string_view(line).substr(kind), "user_id=");
  }
  return 0;
}

// Who may change what stands here. A program that serves a file system is not asked.
std::optional<std::uint32_t> ownerOf(const struct statx& status) {
  if (status.stx_uid != 0) return status.stx_uid;
  if ((status.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0) return std::nullopt;
  const std::uint32_t user = ownerOfMount(status.stx_mnt_id);
  return user != 0 ? std::optional(user) : std::nullopt;
}

// The names that are still to be gone along, the next one last.
class NamesLeft {
 public:
  void putInFront(const std::string& path) {
    const std::vector<std::string> names = path::components(path);
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
      if (*name != "/") names_.push_back(*name);
    }
  }
  bool empty() const { return names_.empty(); }
  std::string takeNext() {
    std::string name = std::move(names_.back());
    names_.pop_back();
    return name;
  }

 private:
  std::vector<std::string> names_;
};

posix::FileDescriptor openRoot() {
  return posix::FileDescriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
}

std::string targetOf(const posix::FileDescriptor& link) {
  std::string target(PATH_MAX, '\0');
  const ssize_t length = ::readlinkat(link.get(), "", target.data(), target.size());
  target.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return target;
}

}  // namespace

Reached reach(const std::string& path) {
  if (!path.starts_with('/')) return {};
  NamesLeft left;
  left.putInFront(path);
  posix::FileDescriptor place = openRoot();
  for (int links = 0; place && !left.empty();) {
    posix::FileDescriptor next(
        ::openat(place.get(), left.takeNext().c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct statx status {};
    if (!next ||
        ::statx(next.get(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, kWanted, &status) != 0) {
      return {};
    }
    if (const auto owner = ownerOf(status)) return {owner, {}};
    if (!S_ISLNK(status.stx_mode)) {
      place = std::move(next);
      continue;
    }
    const std::string target = targetOf(next);
    if (target.empty() || ++links > kMostLinks) return {};
    left.putInFront(target);
    if (target.starts_with('/')) place = openRoot();
  }
  return {std::nullopt, std::move(place)};
}

}  // namespace platform
