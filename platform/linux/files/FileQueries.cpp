#include <fcntl.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include "platform/FileSystem.h"

namespace platform::file_system {
namespace {

constexpr unsigned kPermissionBits = 07777;

Kind kindOf(std::uint32_t mode) {
  if (S_ISREG(mode)) return Kind::regular;
  if (S_ISDIR(mode)) return Kind::directory;
  if (S_ISLNK(mode)) return Kind::symbolicLink;
  return Kind::other;
}

// The nearest that there is: file systems know dates that the clock's nanoseconds do not reach.
std::chrono::system_clock::time_point dateOf(const statx_timestamp& time) {
  using Date = std::chrono::system_clock::time_point;
  using std::chrono::duration_cast;
  using std::chrono::seconds;
  constexpr auto kFirst = duration_cast<seconds>(Date::min().time_since_epoch());
  constexpr auto kLast = duration_cast<seconds>(Date::max().time_since_epoch());
  if (seconds(time.tv_sec) <= kFirst) return Date::min();
  if (seconds(time.tv_sec) >= kLast) return Date::max();
  const auto sinceEpoch = seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  return Date(duration_cast<Date::duration>(sinceEpoch));
}

}  // namespace

bool exists(const std::string& path) {
  return ::faccessat(AT_FDCWD, path.c_str(), F_OK, 0) == 0;
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isExecutable(const std::string& path) {
  return ::access(path.c_str(), X_OK) == 0;
}

bool isWritable(const std::string& path) {
  return ::access(path.c_str(), W_OK) == 0;
}

std::optional<Attributes> attributes(const std::string& path) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &status) != 0) {
    return std::nullopt;
  }
  Attributes attributes;
  attributes.kind = kindOf(status.stx_mode);
  attributes.size = status.stx_size;
  attributes.permissions = status.stx_mode & kPermissionBits;
  attributes.ownerId = status.stx_uid;
  attributes.groupId = status.stx_gid;
  attributes.modificationDate = dateOf(status.stx_mtime);
  attributes.immutable = (status.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
  return attributes;
}

std::optional<std::string> symbolicLinkTarget(const std::string& path) {
  std::string target(PATH_MAX, '\0');
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  if (length < 0) return std::nullopt;
  target.resize(static_cast<std::size_t>(length));
  return target;
}

}  // namespace platform::file_system
