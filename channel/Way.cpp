#include "channel/Way.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <optional>
#include <string_view>
#include <utility>

#include "posix/FileDescriptor.h"

namespace channel {
namespace {

// As many as the kernel follows (path_resolution(7)).
constexpr int kMaxLinks = 40;
constexpr int kOpenFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
constexpr std::array<std::string_view, 6> kFileTools = {"chown", "cp", "mkdir",
                                                        "mv",    "rm", "touch"};

std::deque<std::string> split(std::string_view path) {
  std::deque<std::string> names;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    if (end > 0 && path.substr(0, end) != ".") names.emplace_back(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return names;
}

std::string joined(const std::deque<std::string>& names) {
  std::string path;
  for (const std::string& name : names) path.append("/").append(name);
  return path.empty() ? "/" : path;
}

std::string_view nameOf(std::string_view tool) {
  return tool.substr(tool.rfind('/') + 1);
}

// One opened item of the way.
struct Item {
  posix::FileDescriptor file;
  struct stat facts {};
  bool isOnTrustedSystem = false;

  bool isFolder() const { return S_ISDIR(facts.st_mode); }
  bool isLink() const { return S_ISLNK(facts.st_mode); }
  bool isRoots() const { return facts.st_uid == 0 && isOnTrustedSystem; }
  bool isRootsAlone() const { return isRoots() && (facts.st_mode & (S_IWGRP | S_IWOTH)) == 0; }
  // Whether nobody but root can have put `entry` there, or can put another in its place.
  bool keeps(const Item& entry) const {
    return isRootsAlone() ||
           (isRoots() && (facts.st_mode & S_ISVTX) != 0 && entry.facts.st_uid == 0);
  }
};

int examine(posix::FileDescriptor file, Item& item) {
  struct statvfs system {};
  if (!file || ::fstat(file.get(), &item.facts) != 0 || ::fstatvfs(file.get(), &system) != 0) {
    return errno;
  }
  item.isOnTrustedSystem = (system.f_flag & ST_NOSUID) == 0;
  item.file = std::move(file);
  return 0;
}

class Walk {
 public:
  Walk(const std::string& path, End end) : left_(split(path)), end_(end) {
    way_.written = joined(left_);
  }

  Way finish() {
    way_.status = toRoot();
    while (way_.status == 0 && !left_.empty()) way_.status = step();
    if (way_.status == 0 && linksOwner_ && folder_.facts.st_uid != *linksOwner_) {
      way_.status = EACCES;
    }
    way_.resolved = joined(gone_);
    if (!isWritten_) way_.written = way_.resolved;
    return std::move(way_);
  }

 private:
  int toRoot() {
    gone_.clear();
    return examine(posix::FileDescriptor(::open("/", kOpenFlags | O_DIRECTORY)), folder_);
  }

  int step() {
    const std::string name = std::move(left_.front());
    left_.pop_front();
    if (name == "..") return goBack();
    Item next;
    if (examine(posix::FileDescriptor(::openat(folder_.file.get(), name.c_str(), kOpenFlags)),
                next) != 0) {
      return endAtMissing(name);
    }
    if (!folder_.keeps(next)) noteBorder();
    if (next.isLink() && (!left_.empty() || mayFollowLast(name))) return follow(next);
    gone_.push_back(name);
    if (!next.isFolder()) return left_.empty() ? 0 : endAtMissing(takeName());
    // What root finds in a folder of somebody else's is that one's choice, too.
    if (left_.empty() && !next.isRootsAlone()) noteBorder();
    way_.isEntered = left_.empty() && end_ == End::entered;
    if (!left_.empty() || way_.isEntered) folder_ = std::move(next);
    return 0;
  }

  void noteBorder() {
    if (way_.border.empty()) way_.border = joined(gone_);
  }

  std::string takeName() {
    std::string name = std::move(left_.front());
    left_.pop_front();
    return name;
  }

  // What does not exist may be made by whoever may write to the folder.
  int endAtMissing(const std::string& name) {
    if (!folder_.isRootsAlone()) noteBorder();
    gone_.push_back(name);
    for (; !left_.empty(); left_.pop_front()) {
      if (left_.front() == "..") return EACCES;
      gone_.push_back(left_.front());
    }
    return 0;
  }

  int goBack() {
    if (!way_.border.empty() || !folder_.isRootsAlone()) return EACCES;
    isWritten_ = false;
    if (!gone_.empty()) gone_.pop_back();
    return examine(posix::FileDescriptor(::openat(folder_.file.get(), "..", kOpenFlags)), folder_);
  }

  bool mayFollowLast(const std::string& name) const {
    struct stat target {};
    return end_ == End::entered && ::fstatat(folder_.file.get(), name.c_str(), &target, 0) == 0 &&
           S_ISDIR(target.st_mode);
  }

  int follow(const Item& link) {
    if (++links_ > kMaxLinks) return ELOOP;
    if (!folder_.keeps(link)) {
      const uid_t folders = folder_.facts.st_uid;
      const uid_t owner = folders != 0 ? folders : link.facts.st_uid;
      if (linksOwner_.value_or(owner) != owner) return EACCES;
      linksOwner_ = owner;
    }
    std::array<char, PATH_MAX> target{};
    const ssize_t size = ::readlinkat(link.file.get(), "", target.data(), target.size());
    if (size <= 0) return size < 0 ? errno : ENOENT;
    const std::string_view text(target.data(), static_cast<std::size_t>(size));
    auto names = split(text);
    left_.insert(left_.begin(), names.begin(), names.end());
    return text.starts_with('/') ? toRoot() : 0;
  }

  Way way_;
  std::deque<std::string> left_;
  End end_;
  // The names of the folders that lead to `folder_`, from "/" on, without a link among them.
  std::deque<std::string> gone_;
  Item folder_;
  // Who made the links that root did not make.
  std::optional<uid_t> linksOwner_;
  // Whether the way may be gone as it is written.
  bool isWritten_ = true;
  int links_ = 0;
};

// What stands in the folder under the name of what is brought there is merged into.
std::string borderInside(const Way& folder, const Way& source) {
  const std::string name = source.written.substr(source.written.rfind('/'));
  return Walk(folder.resolved + name, End::meant).finish().border;
}

}  // namespace

Way wayTo(const std::string& path, End end) {
  return Walk(path, end).finish();
}

std::vector<Way> waysOf(const std::vector<std::string>& words) {
  const std::string_view tool = nameOf(words.front());
  const bool transfers = tool == "cp" || tool == "mv";
  std::vector<Way> ways;
  for (std::size_t i = 1; i < words.size(); ++i) {
    if (!words[i].starts_with('/')) continue;
    const bool isTarget = transfers && i + 1 == words.size() && !ways.empty();
    const bool isEntered = isTarget || tool == "mkdir" || tool == "touch";
    Way way = wayTo(words[i], isEntered ? End::entered : End::meant);
    if (isTarget && way.isRootsAlone()) way.border = borderInside(way, ways.front());
    way.word = i;
    ways.push_back(std::move(way));
  }
  return ways;
}

bool isFileTool(const std::string& tool) {
  return std::ranges::find(kFileTools, nameOf(tool)) != kFileTools.end();
}

}  // namespace channel
