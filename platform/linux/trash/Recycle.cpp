#include <fcntl.h>
#include <unistd.h>

#include <ctime>

#include "platform/Console.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/ProcessInfo.h"
#include "platform/Workspace.h"
#include "platform/linux/SystemError.h"
#include "platform/linux/files/MoveItem.h"
#include "platform/linux/trash/LeftoverInformation.h"
#include "platform/linux/trash/TrashFolder.h"
#include "platform/linux/trash/TrashInformation.h"
#include "platform/linux/users/ConsoleHome.h"
#include "posix/WriteAll.h"

namespace platform::workspace {
namespace {

bool isItemName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// The information file of one item; goes away again unless the item has gone into the Trash.
class InformationFile {
 public:
  InformationFile(const posix::FileDescriptor& folder, std::string name,
                  const std::string& contents)
      : folder_(folder), name_(std::move(name)) {
    const ActingAsOwner owner(folder_);
    error_ = owner.ok() ? make(contents) : errno;
  }
  ~InformationFile() {
    if (made_ && !kept_) ::unlinkat(folder_.get(), name_.c_str(), 0);
  }
  InformationFile(const InformationFile&) = delete;
  InformationFile& operator=(const InformationFile&) = delete;

  // 0, or why it is not there whole: EEXIST when there is one already.
  int error() const noexcept { return error_; }
  void keep() noexcept { kept_ = true; }

 private:
  int make(const std::string& contents) {
    const posix::FileDescriptor file(::openat(
        folder_.get(), name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) return errno;
    made_ = true;
    return posix::writeAll(file.get(), contents).error;
  }

  const posix::FileDescriptor& folder_;
  const std::string name_;
  bool made_ = false;
  int error_ = 0;
  bool kept_ = false;
};

class Recycler {
 public:
  Recycler(const std::string& source, const TrashFolder& trash) : source_(source), trash_(trash) {}

  bool recycle(const std::string& name) const;

 private:
  int moveAs(const Location& item, const std::string& name) const;
  int moveWithInformation(const Location& item, const std::string& name) const;

  const std::string& source_;
  const TrashFolder& trash_;
};

bool Recycler::recycle(const std::string& name) const {
  if (!isItemName(name)) return false;
  const Location item = locate(path::appending(source_, name));
  if (!item || ::faccessat(item.descriptor(), item.name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0) {
    return false;
  }
  for (unsigned attempt = 1;; ++attempt) {
    const std::string candidate = nameInTrash(name, attempt);
    const int error =
        trash_.information ? moveWithInformation(item, candidate) : moveAs(item, candidate);
    if (error != EEXIST) return error == 0;
  }
}

int Recycler::moveAs(const Location& item, const std::string& name) const {
  const Location target = locationIn(trash_.files.get(), name);
  return target ? moveItem(item, target).code() : errno;
}

int Recycler::moveWithInformation(const Location& item, const std::string& name) const {
  InformationFile information(
      trash_.information, trashInformationName(name),
      trashInformation(path::appending(source_, item.name), std::time(nullptr)));
  if (information.error() == EEXIST) return EEXIST;
  const int error = moveAs(item, name);
  if (error != 0) return error;
  if (information.error() == 0) {
    information.keep();
  } else {
    // Better there without it than left to be written over.
    console::log("No information for restoring \"%@\" could be written: %@",
                 path::appending(source_, item.name),
                 statusFromErrno(information.error()).description());
  }
  return 0;
}

}  // namespace

bool recycle(const std::string& source, const std::string& trash,
             const std::vector<std::string>& names) {
  if (names.empty() || !source.starts_with('/') || !trash.starts_with('/')) return false;
  const TrashFolder folder = openTrash(trash);
  if (!folder) return false;
  removeLeftoverInformation(folder);
  const Recycler recycler(source, folder);
  bool all = true;
  for (const std::string& name : names) all = recycler.recycle(name) && all;
  return all;
}

bool makeTrash(const std::string& trash) {
  if (process_info::isSuperuser() && !pathInConsoleHome(trash)) return file_system::exists(trash);
  return trash.starts_with('/') && static_cast<bool>(openTrash(trash));
}

}  // namespace platform::workspace
