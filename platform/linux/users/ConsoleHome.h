#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "posix/FileDescriptor.h"

// What the superuser makes inside the console user's home. Whoever owns a folder there may swap it
// or what is in it for a link at any moment, so the way down goes from descriptor to descriptor and
// follows no link, and what is made is made with the folder owner's own rights: it belongs to that
// owner from its first moment, and nothing can be made that the owner could not have made.
namespace platform {

// A path below the console user's home.
struct PathInHome {
  std::string home;
  // At least one; none of them ".." or empty.
  std::vector<std::string> components;
};

// `path` as seen from the console user's home; none when this process is not the superuser, when
// nobody is at the console, or when the path leads elsewhere.
std::optional<PathInHome> pathInConsoleHome(const std::string& path);

// Goes down from `folder` to its directory `name`, following no link. -1 and errno when that is
// impossible.
posix::FileDescriptor descend(const posix::FileDescriptor& folder, const std::string& name);

// The same, making the directory first when there is none.
posix::FileDescriptor descendOrMake(const posix::FileDescriptor& folder, const std::string& name,
                                    mode_t mode);

// Goes down from the home to the path like that, making every folder that is missing.
posix::FileDescriptor descendOrMakeAll(const PathInHome& path, mode_t mode);

// For as long as it lives, this thread's file accesses are made with the rights of whoever owns
// `folder`, and what it makes belongs to that owner and the folder's group. Only for the superuser;
// for anybody else, and for a folder of the superuser's own, it changes nothing.
class ActingAsOwner {
 public:
  explicit ActingAsOwner(const posix::FileDescriptor& folder);
  ~ActingAsOwner();
  ActingAsOwner(const ActingAsOwner&) = delete;
  ActingAsOwner& operator=(const ActingAsOwner&) = delete;

  // False, with errno set, when the identity could not be taken on.
  bool ok() const noexcept { return ok_; }

 private:
  bool ok_ = true;
  bool changed_ = false;
  uid_t userId_ = 0;
  gid_t groupId_ = 0;
};

}  // namespace platform
