#include "platform/linux/files/StagedItem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/SystemError.h"
#include "platform/linux/files/ExclusiveRename.h"
#include "platform/linux/files/Leftovers.h"
#include "platform/linux/files/RemoveTree.h"
#include "platform/linux/files/TemporaryName.h"

namespace platform {

StagedItem::StagedItem(const Location& target, std::string_view purpose, Existing existing)
    : target_(target), existing_(existing), status_(stage(purpose)) {}

StagedItem::~StagedItem() {
  if (!staged_ || inPlace_) return;
  // It may never have been made.
  static_cast<void>(removeTree(staged_, LockedFolders::open).ok());
}

Status StagedItem::stage(std::string_view purpose) {
  struct stat taken {};
  const bool isTaken = statusOf(target_, taken) == 0;
  if (isTaken && (existing_ == Existing::refused || S_ISDIR(taken.st_mode))) {
    return statusFromErrno(EEXIST, pathOf(target_));
  }
  removeLeftovers(target_.descriptor());
  staged_ = locationIn(target_.descriptor(), temporaryName(purpose));
  return staged_ ? Status() : statusFromErrno(errno, pathOf(target_));
}

posix::FileDescriptor StagedItem::openFolder() const {
  return posix::FileDescriptor(
      ::openat(staged_.descriptor(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

Status StagedItem::sync() const {
  const posix::FileDescriptor folder = openFolder();
  return folder && ::syncfs(folder.get()) == 0 ? Status() : statusFromErrno(errno);
}

Status StagedItem::syncName() const {
  const posix::FileDescriptor folder = openFolder();
  // Some file systems have no way to write a folder alone; sync() did it there.
  const bool synced = folder && (::fsync(folder.get()) == 0 || errno == EINVAL);
  return synced ? Status() : statusFromErrno(errno);
}

int StagedItem::replace() const {
  return ::renameat(staged_.descriptor(), staged_.name.c_str(), target_.descriptor(),
                    target_.name.c_str()) == 0
             ? 0
             : errno;
}

Status StagedItem::putInPlace() {
  const int error =
      existing_ == Existing::replaced ? replace() : renameExclusively(staged_, target_);
  if (error != 0) return statusFromErrno(error, pathOf(target_));
  inPlace_ = true;
  return {};
}

void StagedItem::takeBack() {
  if (inPlace_ && renameExclusively(target_, staged_) == 0) inPlace_ = false;
}

}  // namespace platform
