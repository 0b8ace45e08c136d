#include "archiver/MergeTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/linux/SystemError.h"
#include "platform/linux/files/TreeWalk.h"

namespace archiver {
namespace {

using platform::DirectoryChain;
using platform::Status;

// One walk looks whether all fits, a second one moves.
class Merging final : public platform::TreeVisitor {
 public:
  enum class Pass { look, move };

  Merging(int into, Pass pass) : into_(into), pass_(pass) {}

  const Status& result() const noexcept { return result_; }

  posix::FileDescriptor enter(int parent, const std::string& name) override;
  bool visit(const Directory& folder, const Item& item) override;
  bool leave(const Directory& folder, int parent, const std::string& name) override;
  void failed(int error, int folder, const char* name) override {
    result_ = platform::statusFromErrno(error, platform::pathOf(folder, name));
  }
  bool stopped() override { return !result_.ok(); }

 private:
  void fit(int folder, const Item& item, bool isFolder);
  int moveFolder(int folder, const char* name) const;

  const int into_;
  const Pass pass_;
  DirectoryChain targets_;
  Status result_;
};

posix::FileDescriptor Merging::enter(int parent, const std::string& name) {
  const bool root = targets_.depth() == 0;
  posix::FileDescriptor target =
      root ? platform::openFolder(into_, ".") : platform::openFolder(targets_.top()->get(), name);
  if (!target) {
    failed(errno, root ? into_ : targets_.top()->get(), name.c_str());
    return {};
  }
  targets_.push(std::move(target));
  posix::FileDescriptor source = platform::openFolder(parent, name);
  if (!source) failed(errno, parent, name.c_str());
  return source;
}

// Only a folder that both sides have is gone into.
bool Merging::visit(const Directory& folder, const Item& item) {
  const int target = targets_.top()->get();
  struct stat taken {};
  const bool isTaken = ::fstatat(target, item.name.data(), &taken, AT_SYMLINK_NOFOLLOW) == 0;
  const bool isFolder = item.type == DT_DIR;
  if (isTaken && S_ISDIR(taken.st_mode) != isFolder) {
    failed(isFolder ? ENOTDIR : EISDIR, target, item.name.data());
  } else if (isTaken && isFolder) {
    return true;
  } else if (pass_ == Pass::move) {
    fit(folder->get(), item, isFolder);
  }
  return false;
}

void Merging::fit(int folder, const Item& item, bool isFolder) {
  const int target = targets_.top()->get();
  const char* const name = item.name.data();
  const int error = isFolder ? moveFolder(folder, name)
                             : (::renameat(folder, name, target, name) == 0 ? 0 : errno);
  if (error != 0) failed(error, target, name);
}

// A folder that may not be written cannot be moved to another one.
int Merging::moveFolder(int folder, const char* name) const {
  const posix::FileDescriptor open = platform::openFolder(folder, name);
  struct stat status {};
  if (!open || ::fstat(open.get(), &status) != 0) return errno;
  const mode_t mode = status.st_mode & 07777U;
  if (::fchmod(open.get(), mode | S_IWUSR) != 0) return errno;
  if (::renameat(folder, name, targets_.top()->get(), name) != 0) return errno;
  return ::fchmod(open.get(), mode) == 0 ? 0 : errno;
}

bool Merging::leave(const Directory&, int parent, const std::string& name) {
  if (const int error = targets_.pop(); error != 0) failed(error, parent, name.c_str());
  return false;
}

Status walk(const platform::Location& from, int into, Merging::Pass pass) {
  Merging merging(into, pass);
  platform::TreeWalk(merging).walk(from.descriptor(), from.name);
  return merging.result();
}

}  // namespace

Status mergeTree(const platform::Location& from, int into) {
  const Status fits = walk(from, into, Merging::Pass::look);
  return fits.ok() ? walk(from, into, Merging::Pass::move) : fits;
}

}  // namespace archiver
