#include "platform/linux/files/CopyAttributes.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace platform {
namespace {

constexpr mode_t kPermissionBits = 07777;
constexpr mode_t kRunAsBits = S_ISUID | S_ISGID;
constexpr std::size_t kUsualListSize = 1024;

std::string pathOfDescriptor(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

// Extended attributes by descriptor, or, for an item that is only open as a place, by its path in
// /proc: the calls on descriptors refuse such an item.
class ExtendedAttributes {
 public:
  ExtendedAttributes(int item, bool place)
      : item_(item), path_(place ? pathOfDescriptor(item) : "") {}

  ssize_t list(char* names, std::size_t size) const {
    return path_.empty() ? ::flistxattr(item_, names, size)
                         : ::listxattr(path_.c_str(), names, size);
  }
  ssize_t get(const char* name, void* value, std::size_t size) const {
    return path_.empty() ? ::fgetxattr(item_, name, value, size)
                         : ::getxattr(path_.c_str(), name, value, size);
  }
  int set(const char* name, const std::vector<char>& value) const {
    return path_.empty() ? ::fsetxattr(item_, name, value.data(), value.size(), 0)
                         : ::setxattr(path_.c_str(), name, value.data(), value.size(), 0);
  }

 private:
  int item_;
  std::string path_;
};

// What only says that the other file system, or this user, cannot have the attribute.
bool isBearable(int error) {
  return error == ENOTSUP || error == EPERM || error == EACCES || error == ENODATA ||
         error == EINVAL;
}

int copyOne(const ExtendedAttributes& in, const ExtendedAttributes& out, const char* name) {
  std::vector<char> value(kUsualListSize);
  for (;;) {
    const ssize_t size = in.get(name, value.data(), value.size());
    if (size >= 0) {
      value.resize(static_cast<std::size_t>(size));
      break;
    }
    if (errno != ERANGE) return isBearable(errno) ? 0 : errno;
    value.resize(value.size() * 4);
  }
  return out.set(name, value) == 0 || isBearable(errno) ? 0 : errno;
}

int copyExtendedAttributes(const ExtendedAttributes& in, const ExtendedAttributes& out) {
  char usual[kUsualListSize];
  std::vector<char> large;
  char* names = usual;
  ssize_t size = in.list(usual, sizeof usual);
  while (size < 0 && errno == ERANGE) {
    large.resize(large.empty() ? kUsualListSize * 8 : large.size() * 4);
    names = large.data();
    size = in.list(names, large.size());
  }
  if (size < 0) return isBearable(errno) || errno == ENOENT ? 0 : errno;
  for (const char* name = names; name < names + size; name += std::strlen(name) + 1) {
    if (const int error = copyOne(in, out, name); error != 0) return error;
  }
  return 0;
}

// Whether the copy belongs to `wanted` now; a user may not give files away.
bool takeOwnership(int out, const struct stat& wanted, Ownership present) {
  if (wanted.st_uid == present.user && wanted.st_gid == present.group) return true;
  if (::fchownat(out, "", wanted.st_uid, wanted.st_gid, AT_EMPTY_PATH) == 0) return true;
  constexpr auto kUnchanged = static_cast<uid_t>(-1);
  const bool groupTaken = ::fchownat(out, "", kUnchanged, wanted.st_gid, AT_EMPTY_PATH) == 0;
  return groupTaken && wanted.st_uid == present.user;
}

mode_t allowedMode(const struct stat& wanted, bool owned) {
  const mode_t mode = wanted.st_mode & kPermissionBits;
  return owned ? mode : mode & ~kRunAsBits;
}

}  // namespace

int copyAttributes(int in, int out, const struct stat& wanted, Ownership present,
                   mode_t presentMode, const CopyContext&) {
  const bool owned = takeOwnership(out, wanted, present);
  if (const int error = copyExtendedAttributes({in, false}, {out, false}); error != 0) return error;
  const mode_t mode = allowedMode(wanted, owned);
  if (mode != presentMode && ::fchmod(out, mode) != 0) return errno;
  const timespec times[2] = {wanted.st_atim, wanted.st_mtim};
  return ::futimens(out, times) == 0 ? 0 : errno;
}

int copyPlaceAttributes(int in, int out, const struct stat& wanted, Ownership present,
                        const CopyContext& context) {
  const bool owned = takeOwnership(out, wanted, present);
  const bool link = S_ISLNK(wanted.st_mode);
  // Of a link, only the attributes that the superuser may set can be there.
  if (!link || context.isSuperuser()) {
    if (const int error = copyExtendedAttributes({in, true}, {out, true}); error != 0) return error;
  }
  if (!link && ::chmod(pathOfDescriptor(out).c_str(), allowedMode(wanted, owned)) != 0) {
    return errno;
  }
  const timespec times[2] = {wanted.st_atim, wanted.st_mtim};
  return ::utimensat(out, "", times, AT_EMPTY_PATH) == 0 ? 0 : errno;
}

void dropInheritedAccessLists(int item) {
  ::fremovexattr(item, "system.posix_acl_default");
  ::fremovexattr(item, "system.posix_acl_access");
}

}  // namespace platform
