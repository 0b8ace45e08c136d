#include "platform/linux/files/CopyItem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/SystemError.h"
#include "platform/linux/files/CopyEntry.h"
#include "platform/linux/files/CopyTree.h"

namespace platform {
namespace {

bool isSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Whether `folder` is the directory `item` or somewhere below it.
bool isWithin(int folder, const struct stat& item) {
  posix::FileDescriptor current(::openat(folder, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat status {};
  while (current && ::fstat(current.get(), &status) == 0) {
    if (isSame(status, item)) return true;
    posix::FileDescriptor parent(::openat(current.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat above {};
    if (!parent || ::fstat(parent.get(), &above) != 0 || isSame(above, status)) return false;
    current = std::move(parent);
  }
  return false;
}

// The error number of what can be seen beforehand to be wrong with the target, or 0: a copy that
// fails later blames the item that it has come to.
int refusal(const Location& target, const struct stat& item) {
  struct stat taken {};
  if (statusOf(target, taken) == 0) return EEXIST;
  if (S_ISDIR(item.st_mode) && isWithin(target.descriptor(), item)) return EINVAL;
  return ::faccessat(target.descriptor(), ".", W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

}  // namespace

Status checkCopy(const Location& source, const Location& target) {
  struct stat item {};
  if (const int error = statusOf(source, item); error != 0) {
    return statusFromErrno(error, pathOf(source));
  }
  const int error = refusal(target, item);
  return error == 0 ? Status() : statusFromErrno(error, pathOf(target));
}

Status copyTo(const StagedItem& staged, const Location& source,
              file_system::CopyObserver* observer) {
  CopyContext context(observer);
  const Location& target = staged.location();
  struct stat item {};
  if (const int error = statusOf(source, item); error != 0) {
    context.fail(error, source.descriptor(), source.name);
  } else if (S_ISDIR(item.st_mode)) {
    copyTree(source, target, context);
  } else {
    copyEntry(
        {S_ISREG(item.st_mode), source.descriptor(), source.name, target.descriptor(), target.name},
        context, nullptr, nullptr);
  }
  return context.result();
}

Status copyItem(const Location& source, const Location& target,
                file_system::CopyObserver* observer) {
  if (Status refused = checkCopy(source, target); !refused.ok()) return refused;
  StagedItem staged(target, "copying");
  if (!staged.status().ok()) return staged.status();
  const Status copied = copyTo(staged, source, observer);
  return copied.ok() ? staged.putInPlace() : copied;
}

namespace file_system {

Status copy(const std::string& source, const std::string& destination, CopyObserver* observer) {
  const Location from = locate(source);
  if (!from) return statusFromErrno(errno, source);
  const Location to = locate(destination);
  if (!to) return statusFromErrno(errno, destination);
  return copyItem(from, to, observer);
}

}  // namespace file_system
}  // namespace platform
