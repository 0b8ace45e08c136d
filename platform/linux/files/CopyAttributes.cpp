#include "platform/linux/files/CopyAttributes.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/files/MountRights.h"

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
  bool mayChangeIdentity() const { return rightsOfMount(item_).changeIdentity; }

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

// What gives a program rights that its user does not have.
bool isCapability(const char* name) {
  return std::string_view(name) == "security.capability";
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
    if (isCapability(name) && !in.mayChangeIdentity()) continue;
    if (const int error = copyOne(in, out, name); error != 0) return error;
  }
  return 0;
}

// What only says that this user may not give files away, or that there is no such owner here.
bool isRefusedOwner(int error) {
  return error == EPERM || error == EACCES || error == EINVAL || error == ENOTSUP ||
         error == EOVERFLOW;
}

// 0, also where that is refused, or an error number.
int changeOwner(int out, uid_t user, gid_t group, bool& done) {
  done = ::fchownat(out, "", user, group, AT_EMPTY_PATH) == 0;
  return done || isRefusedOwner(errno) ? 0 : errno;
}

// `owned` is set to whether the copy belongs to `wanted` now. 0 or an error number.
int takeOwnership(int out, const struct stat& wanted, Ownership present, bool& owned) {
  owned = wanted.st_uid == present.user && wanted.st_gid == present.group;
  if (owned) return 0;
  if (const int error = changeOwner(out, wanted.st_uid, wanted.st_gid, owned);
      error != 0 || owned) {
    return error;
  }
  constexpr auto kUnchanged = static_cast<uid_t>(-1);
  const int error = changeOwner(out, kUnchanged, wanted.st_gid, owned);
  owned = owned && wanted.st_uid == present.user;
  return error;
}

// Of a folder the bits only say whose group what is made in it has.
mode_t allowedMode(int in, const struct stat& wanted, bool owned) {
  const mode_t mode = wanted.st_mode & kPermissionBits;
  if (!owned) return mode & ~kRunAsBits;
  const bool runsAs = !S_ISDIR(wanted.st_mode) && (mode & kRunAsBits) != 0;
  return runsAs && !rightsOfMount(in).changeIdentity ? mode & ~kRunAsBits : mode;
}

}  // namespace

int copyAttributes(int in, int out, const struct stat& wanted, Ownership present,
                   mode_t presentMode, const CopyContext&) {
  bool owned = false;
  if (const int error = takeOwnership(out, wanted, present, owned); error != 0) return error;
  if (const int error = copyExtendedAttributes({in, false}, {out, false}); error != 0) return error;
  const mode_t mode = allowedMode(in, wanted, owned);
  if (mode != presentMode && ::fchmod(out, mode) != 0) return errno;
  const timespec times[2] = {wanted.st_atim, wanted.st_mtim};
  return ::futimens(out, times) == 0 ? 0 : errno;
}

int copyPlaceAttributes(int in, int out, const struct stat& wanted, Ownership present,
                        const CopyContext& context) {
  bool owned = false;
  if (const int error = takeOwnership(out, wanted, present, owned); error != 0) return error;
  const bool link = S_ISLNK(wanted.st_mode);
  // Of a link, only the attributes that the superuser may set can be there.
  if (!link || context.isSuperuser()) {
    if (const int error = copyExtendedAttributes({in, true}, {out, true}); error != 0) return error;
  }
  if (!link && ::chmod(pathOfDescriptor(out).c_str(), allowedMode(in, wanted, owned)) != 0) {
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
