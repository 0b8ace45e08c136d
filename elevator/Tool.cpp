#include "elevator/Tool.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <string_view>

namespace elevator {
namespace {

// As many as the kernel follows (path_resolution(7)).
constexpr int kMaxLinks = 40;
constexpr int kOpenFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;

// A POSIX access list that lets somebody else write shows in the group's permission bits (acl(5)),
// so it needs no look of its own. A link's own permissions mean nothing.
int examine(int file, struct stat& facts) {
  struct statvfs system {};
  if (::fstat(file, &facts) != 0 || ::fstatvfs(file, &system) != 0) return errno;
  const bool othersWrite = !S_ISLNK(facts.st_mode) && (facts.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  const bool trusted = facts.st_uid == 0 && !othersWrite && (system.f_flag & ST_NOSUID) == 0;
  return trusted ? 0 : EACCES;
}

std::deque<std::string> split(std::string_view path) {
  std::deque<std::string> names;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    if (end > 0) names.emplace_back(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return names;
}

// A walk from "/" along a path, one opened component after the other.
class Walk {
 public:
  explicit Walk(std::string_view path) : left_(split(path)) {}

  // The opened end of the path; empty with the status set when it cannot or must not be reached.
  posix::FileDescriptor finish(int& status) {
    status = toRoot();
    while (status == 0 && !left_.empty()) status = step();
    return status == 0 ? std::move(here_) : posix::FileDescriptor();
  }

 private:
  int toRoot() {
    here_ = posix::FileDescriptor(::open("/", kOpenFlags | O_DIRECTORY));
    struct stat facts {};
    return here_ ? examine(here_.get(), facts) : errno;
  }

  int step() {
    const std::string name = std::move(left_.front());
    left_.pop_front();
    posix::FileDescriptor next(::openat(here_.get(), name.c_str(), kOpenFlags));
    if (!next) return errno;
    struct stat facts {};
    if (const int status = examine(next.get(), facts); status != 0) return status;
    if (S_ISLNK(facts.st_mode)) return follow(next.get());
    if (!left_.empty() && !S_ISDIR(facts.st_mode)) return ENOTDIR;
    here_ = std::move(next);
    return 0;
  }

  int follow(int link) {
    if (++links_ > kMaxLinks) return ELOOP;
    std::array<char, PATH_MAX> target{};
    const ssize_t size = ::readlinkat(link, "", target.data(), target.size());
    if (size <= 0) return size < 0 ? errno : ENOENT;
    const std::string_view text(target.data(), static_cast<std::size_t>(size));
    auto names = split(text);
    left_.insert(left_.begin(), names.begin(), names.end());
    return text.starts_with('/') ? toRoot() : 0;
  }

  posix::FileDescriptor here_;
  std::deque<std::string> left_;
  int links_ = 0;
};

bool startsWithHashBang(int file) {
  const std::string again = "/proc/self/fd/" + std::to_string(file);
  const posix::FileDescriptor readable(::open(again.c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 2> start{};
  return readable && ::read(readable.get(), start.data(), start.size()) == 2 && start[0] == '#' &&
         start[1] == '!';
}

}  // namespace

Tool openTool(const std::string& path) {
  Tool tool;
  if (!path.starts_with('/') || (path.size() > 1 && path.ends_with('/'))) {
    return {EINVAL, {}, false};
  }
  tool.file = Walk(path).finish(tool.status);
  struct stat facts {};
  if (tool.status != 0) return tool;
  if (::fstat(tool.file.get(), &facts) != 0) return {errno, {}, false};
  if (!S_ISREG(facts.st_mode) || (facts.st_mode & S_IXUSR) == 0) return {EACCES, {}, false};
  tool.isScript = startsWithHashBang(tool.file.get());
  return tool;
}

}  // namespace elevator
