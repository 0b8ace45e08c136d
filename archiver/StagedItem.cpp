#include "archiver/StagedItem.h"

#include <fcntl.h>

#include "platform/linux/SystemError.h"
#include "platform/linux/files/ExclusiveRename.h"
#include "platform/linux/files/RemoveTree.h"
#include "platform/linux/files/TemporaryName.h"

namespace archiver {

using platform::Status;
using platform::statusFromErrno;

StagedItem::StagedItem(const std::string& path, std::string_view purpose)
    : path_(path), target_(platform::locate(path)), status_(find(purpose)) {}

StagedItem::~StagedItem() {
  if (!staged_ || inPlace_) return;
  // It may never have been made.
  static_cast<void>(removeTree(staged_, platform::LockedFolders::open).ok());
}

Status StagedItem::find(std::string_view purpose) {
  if (!target_) return statusFromErrno(errno, path_);
  if (::faccessat(target_.descriptor(), target_.name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
    return statusFromErrno(EEXIST, path_);
  }
  staged_.name = platform::temporaryName(purpose);
  staged_.folder.reset(::fcntl(target_.descriptor(), F_DUPFD_CLOEXEC, 0));
  return staged_ ? Status() : statusFromErrno(errno, path_);
}

Status StagedItem::putInPlace() {
  const int error = platform::renameExclusively(staged_, target_);
  inPlace_ = error == 0;
  return statusFromErrno(error, path_);
}

}  // namespace archiver
