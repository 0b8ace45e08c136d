#include "platform/linux/files/MoveItem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Console.h"
#include "platform/FileSystem.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/files/CopyItem.h"
#include "platform/linux/files/ExclusiveRename.h"
#include "platform/linux/files/Leftovers.h"
#include "platform/linux/files/RemoveTree.h"
#include "platform/linux/files/StagedItem.h"
#include "platform/linux/files/TemporaryName.h"

namespace platform {
namespace {

// Takes the item, which was `copied`, out of sight in its folder, all of it in one step: only what
// is no longer where it was may be removed piece by piece. 0 or an error number.
int setAside(const Location& from, const Location& aside, const struct stat& copied) {
  if (const int error = renameExclusively(from, aside); error != 0) return error;
  struct stat taken {};
  const int error = statusOf(aside, taken);
  if (error == 0 && taken.st_dev == copied.st_dev && taken.st_ino == copied.st_ino) return 0;
  // Somebody has put another item there since.
  renameExclusively(aside, from);
  return error == 0 ? ESTALE : error;
}

void removeAside(const Location& aside) {
  // All of it stands in its new place: a folder that may not be written must not keep a remainder.
  const Status removed = removeTree(aside, LockedFolders::open);
  if (removed.ok()) return;
  console::log("An item was moved, but what it was could not be removed: %@",
               removed.description());
}

Status moveAcross(const Location& from, const Location& to) {
  struct stat item {};
  if (const int error = statusOf(from, item); error != 0) return statusFromErrno(error);
  // Better known before everything is copied; what it misses is found when the item is set aside.
  if (::faccessat(from.descriptor(), ".", W_OK | X_OK, AT_EACCESS) != 0) {
    return statusFromErrno(errno, pathOf(from));
  }
  if (Status refused = checkCopy(from, to); !refused.ok()) return refused;
  StagedItem staged(to, "copying");
  if (!staged.status().ok()) return staged.status();
  if (Status copied = copyTo(staged, from, nullptr); !copied.ok()) return copied;
  if (Status synced = staged.sync(); !synced.ok()) return synced;
  if (Status placed = staged.putInPlace(); !placed.ok()) return placed;
  if (Status synced = staged.syncName(); !synced.ok()) {
    staged.takeBack();
    return synced;
  }

  removeLeftovers(from.descriptor());
  const Location aside = locationIn(from.descriptor(), temporaryName("moving"));
  const int error = aside ? setAside(from, aside, item) : errno;
  if (error != 0) {
    staged.takeBack();
    return statusFromErrno(error, pathOf(from));
  }
  removeAside(aside);
  return {};
}

}  // namespace

Status moveItem(const Location& from, const Location& to) {
  const int error = renameExclusively(from, to);
  if (error == EXDEV) return moveAcross(from, to);
  return statusFromErrno(error, pathOf(to));
}

namespace file_system {

Status move(const std::string& source, const std::string& destination) {
  const Location from = locate(source);
  if (!from) return statusFromErrno(errno, source);
  struct stat item {};
  if (const int error = statusOf(from, item); error != 0) return statusFromErrno(error, source);
  const Location to = locate(destination);
  if (!to) return statusFromErrno(errno, destination);
  if (isSameLocation(from, to)) return {};
  return moveItem(from, to);
}

}  // namespace file_system
}  // namespace platform
