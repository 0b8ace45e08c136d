#include "platform/linux/files/CopyTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/files/CopyEntry.h"
#include "platform/linux/files/CopyQueue.h"
#include "platform/linux/files/DirectoryChain.h"
#include "platform/linux/files/RemoveTree.h"
#include "platform/linux/files/TreeWalk.h"

namespace platform {
namespace {

using Directory = DirectoryChain::Directory;

// How much is handed to a thread at once: enough to make handing over cheap, little enough that the
// threads end together.
constexpr std::size_t kMaxItemsInBatch = 32;

constexpr mode_t kPermissionBits = 07777;

// A new directory for its owner alone, whatever is taken from the mode of what is made. Without a
// descriptor, and with errno set, on a failure.
posix::FileDescriptor makeClosedFolder(int parent, const std::string& name) {
  if (::mkdirat(parent, name.c_str(), S_IRWXU) != 0) return {};
  posix::FileDescriptor folder = openFolder(parent, name);
  if (folder || errno != EACCES) return folder;
  allowOwner(parent, name.c_str());
  return openFolder(parent, name);
}

// A directory of the copy. It gets its attributes when nothing more is made in it: when the walk
// has left it and the last batch of its files is done, in whichever thread that is.
class FolderInProgress {
 public:
  // `made` is the status of the copy as it was made.
  FolderInProgress(CopyContext& context, const struct stat& wanted, const struct stat& made)
      : context_(context),
        wanted_(wanted),
        made_{made.st_uid, made.st_gid},
        madeMode_(made.st_mode & kPermissionBits) {}
  ~FolderInProgress();
  FolderInProgress(const FolderInProgress&) = delete;
  FolderInProgress& operator=(const FolderInProgress&) = delete;

  const Ownership& ownershipOfNewItems() const noexcept { return made_; }
  void setDirectories(Directory source, Directory target);

 private:
  CopyContext& context_;
  const struct stat wanted_;
  const Ownership made_;
  const mode_t madeMode_;
  Directory source_;  // both set when the walk leaves
  Directory target_;
};

void FolderInProgress::setDirectories(Directory source, Directory target) {
  source_ = std::move(source);
  target_ = std::move(target);
}

FolderInProgress::~FolderInProgress() {
  if (!target_ || context_.stopped()) return;
  const int error =
      copyAttributes(source_->get(), target_->get(), wanted_, made_, madeMode_, context_);
  if (error != 0) {
    context_.fail(error, source_->get(), ".");
  } else {
    context_.countItem(source_->get(), "");
  }
}

// Files of one folder that one thread copies one after the other.
struct Batch {
  Directory source;
  Directory target;
  std::shared_ptr<FolderInProgress> folder;
  struct Item {
    std::string name;
    bool file = false;
  };
  std::vector<Item> items;
};

void copyBatch(const Batch& batch, CopyContext& context, LinkGroups& groups) {
  try {
    for (const Batch::Item& item : batch.items) {
      if (context.stopped()) return;
      const EntryPlaces places{item.file, batch.source->get(), item.name, batch.target->get(),
                               item.name};
      copyEntry(places, context, &groups, &batch.folder->ownershipOfNewItems());
    }
  } catch (const std::bad_alloc&) {
    context.fail(ENOMEM, batch.source->get(), ".");
  }
}

class TreeCopy final : public TreeVisitor {
 public:
  explicit TreeCopy(CopyContext& context) : context_(context) {}

  bool copy(const Location& source, const Location& target);

  posix::FileDescriptor enter(int parent, const std::string& name) override;
  bool visit(const Directory& folder, const Item& item) override;
  bool leave(const Directory& folder, int parent, const std::string& name) override;
  void failed(int error, int folder, const char* name) override {
    context_.fail(error, folder, name);
  }
  bool stopped() override { return context_.stopped(); }

 private:
  bool isRoot() const noexcept { return folders_.empty(); }
  bool makeFolder(const struct stat& wanted, const std::string& name);
  bool isTarget(const struct stat& status) const;
  void send();
  bool finish();

  CopyContext& context_;
  const Location* target_ = nullptr;
  DirectoryChain targets_;
  // On the way down; in each the copies of the items of the folder of the source.
  std::vector<std::shared_ptr<FolderInProgress>> folders_;
  Batch batch_;  // of the folder that is being read
  struct stat targetRoot_ {};
  Directory rootDirectory_;
  std::shared_ptr<FolderInProgress> root_;  // once it is left
  std::optional<LinkGroups> groups_;
  CopyQueue queue_;  // last: its threads use what is above
};

bool TreeCopy::copy(const Location& source, const Location& target) {
  target_ = &target;
  TreeWalk(*this).walk(source.descriptor(), source.name);
  queue_.finish();
  return !context_.stopped() && finish();
}

posix::FileDescriptor TreeCopy::enter(int parent, const std::string& name) {
  send();
  posix::FileDescriptor source = openFolder(parent, name);
  struct stat wanted {};
  if (!source || ::fstat(source.get(), &wanted) != 0) {
    context_.fail(errno, parent, name);
  } else if (!isRoot() && isTarget(wanted)) {
    // The copy is being made inside what is copied.
    context_.fail(EINVAL, parent, name);
  } else if (makeFolder(wanted, isRoot() ? target_->name : name)) {
    return source;
  }
  return {};
}

bool TreeCopy::isTarget(const struct stat& status) const {
  return status.st_dev == targetRoot_.st_dev && status.st_ino == targetRoot_.st_ino;
}

bool TreeCopy::makeFolder(const struct stat& wanted, const std::string& name) {
  const int parent = isRoot() ? target_->descriptor() : targets_.top()->get();
  posix::FileDescriptor target = makeClosedFolder(parent, name);
  if (!target) return context_.fail(errno, parent, name);
  if (isRoot()) dropInheritedAccessLists(target.get());
  struct stat made {};
  if (::fstat(target.get(), &made) != 0) return context_.fail(errno, parent, name);
  targets_.push(std::move(target));
  if (isRoot()) {
    targetRoot_ = made;
    rootDirectory_ = targets_.top();
    groups_.emplace(rootDirectory_->get());
  }
  folders_.push_back(std::make_shared<FolderInProgress>(context_, wanted, made));
  return true;
}

bool TreeCopy::visit(const Directory& folder, const Item& item) {
  if (item.type == DT_DIR) return true;
  if (batch_.items.empty()) batch_ = {folder, targets_.top(), folders_.back(), {}};
  batch_.items.push_back({std::string(item.name), item.type == DT_REG || item.type == DT_UNKNOWN});
  if (batch_.items.size() >= kMaxItemsInBatch) send();
  return false;
}

void TreeCopy::send() {
  if (batch_.items.empty()) return;
  auto shared = std::make_shared<Batch>(std::exchange(batch_, {}));
  queue_.push([this, shared] { copyBatch(*shared, context_, *groups_); });
}

// The root stays open until the hidden folder in it is gone.
bool TreeCopy::leave(const Directory& folder, int, const std::string&) {
  send();
  const Directory target = targets_.top();
  const std::shared_ptr<FolderInProgress> left = std::move(folders_.back());
  folders_.pop_back();
  left->setDirectories(folder, target);
  if (isRoot()) root_ = left;
  if (const int error = targets_.pop(); error != 0) context_.fail(error, target->get(), "..");
  return false;
}

bool TreeCopy::finish() {
  if (const int error = groups_->finish(); error != 0) {
    return context_.fail(error, rootDirectory_->get(), ".");
  }
  root_.reset();
  return !context_.stopped();
}

}  // namespace

bool copyTree(const Location& source, const Location& target, CopyContext& context) {
  return TreeCopy(context).copy(source, target);
}

}  // namespace platform
