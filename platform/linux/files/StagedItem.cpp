#include "platform/linux/files/StagedItem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/SystemError.h"
#include "platform/linux/files/ExclusiveRename.h"
#include "platform/linux/files/RemoveTree.h"
#include "platform/linux/files/TemporaryName.h"

namespace platform {

StagedItem::StagedItem(const Location& target, std::string_view purpose)
    : target_(target), status_(stage(purpose)) {}

StagedItem::~StagedItem() {
  if (!staged_ || inPlace_) return;
  // It may never have been made.
  static_cast<void>(removeTree(staged_, LockedFolders::open).ok());
}

Status StagedItem::stage(std::string_view purpose) {
  struct stat taken {};
  if (statusOf(target_, taken) == 0) return statusFromErrno(EEXIST, pathOf(target_));
  staged_ = locationIn(target_.descriptor(), temporaryName(purpose));
  return staged_ ? Status() : statusFromErrno(errno, pathOf(target_));
}

Status StagedItem::sync() const {
  const posix::FileDescriptor folder(
      ::openat(staged_.descriptor(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && ::syncfs(folder.get()) == 0 ? Status() : statusFromErrno(errno);
}

Status StagedItem::putInPlace() {
  const int error = renameExclusively(staged_, target_);
  if (error != 0) return statusFromErrno(error, pathOf(target_));
  inPlace_ = true;
  return {};
}

void StagedItem::takeBack() {
  if (inPlace_ && renameExclusively(target_, staged_) == 0) inPlace_ = false;
}

}  // namespace platform
