#include "platform/linux/files/CopyTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/files/CopyEntry.h"
#include "platform/linux/files/CopyQueue.h"
#include "platform/linux/files/DirectoryChain.h"
#include "platform/linux/files/DirectoryReader.h"

namespace platform {
namespace {

using Directory = DirectoryChain::Directory;

// How many names of folders that are still to be copied may be remembered at once.
constexpr std::size_t kMaxPendingFolders = 16384;
// How much is handed to a thread at once: enough to make handing over cheap, little enough that the
// threads end together.
constexpr std::size_t kMaxItemsInBatch = 32;

// A directory of the copy. It gets its attributes when nothing more is made in it: when the walk
// has left it and the last batch of its files is done, in whichever thread that is.
class FolderInProgress {
 public:
  FolderInProgress(CopyContext& context, const struct stat& wanted, Ownership made)
      : context_(context), wanted_(wanted), made_(made) {}
  ~FolderInProgress();
  FolderInProgress(const FolderInProgress&) = delete;
  FolderInProgress& operator=(const FolderInProgress&) = delete;

  const Ownership& ownershipOfNewItems() const noexcept { return made_; }
  void setDirectories(Directory source, Directory target);

 private:
  CopyContext& context_;
  const struct stat wanted_;
  const Ownership made_;
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
      copyAttributes(source_->get(), target_->get(), wanted_, made_, S_IRWXU, context_);
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

class TreeCopier {
 public:
  explicit TreeCopier(CopyContext& context) : context_(context) {}

  bool copy(const Location& source, const Location& target);

 private:
  struct Level {
    std::shared_ptr<FolderInProgress> folder;
    std::vector<std::string> folders;  // found in it and not yet copied
    off_t position = 0;                // where reading it goes on
    bool read = false;                 // nothing more to read
  };

  bool enter(int sourceFolder, const std::string& sourceName, int targetFolder,
             const std::string& targetName);
  bool isTarget(const struct stat& status) const;
  bool walk();
  bool read(Level& level);
  bool take(Level& level, Batch& batch, const DirectoryReader::Entry& entry);
  bool isFolder(const std::string& name, unsigned char type) const;
  Batch newBatch(const Level& level) const;
  void send(Batch& batch);
  bool leave();
  bool finish();

  CopyContext& context_;
  DirectoryChain sources_;
  DirectoryChain targets_;
  std::vector<Level> levels_;
  std::size_t pendingFolders_ = 0;
  struct stat targetRoot_ {};
  Directory root_;
  std::optional<LinkGroups> groups_;
  CopyQueue queue_;  // last: its threads use what is above
};

bool TreeCopier::copy(const Location& source, const Location& target) {
  if (!enter(source.descriptor(), source.name, target.descriptor(), target.name)) return false;
  root_ = targets_.top();
  dropInheritedAccessLists(root_->get());
  groups_.emplace(root_->get());
  const bool walked = walk();
  queue_.finish();
  return walked && finish();
}

bool TreeCopier::isTarget(const struct stat& status) const {
  return status.st_dev == targetRoot_.st_dev && status.st_ino == targetRoot_.st_ino;
}

bool TreeCopier::enter(int sourceFolder, const std::string& sourceName, int targetFolder,
                       const std::string& targetName) {
  posix::FileDescriptor source(
      ::openat(sourceFolder, sourceName.c_str(),
               O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat wanted {};
  if (!source || ::fstat(source.get(), &wanted) != 0) {
    return context_.fail(errno, sourceFolder, sourceName);
  }
  // The copy is being made inside what is copied.
  if (!levels_.empty() && isTarget(wanted)) {
    return context_.fail(EINVAL, sourceFolder, sourceName);
  }
  if (::mkdirat(targetFolder, targetName.c_str(), S_IRWXU) != 0) {
    return context_.fail(errno, targetFolder, targetName);
  }
  posix::FileDescriptor target(
      ::openat(targetFolder, targetName.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat made {};
  if (!target || ::fstat(target.get(), &made) != 0) {
    return context_.fail(errno, targetFolder, targetName);
  }
  if (levels_.empty()) targetRoot_ = made;
  sources_.push(std::move(source));
  targets_.push(std::move(target));
  levels_.push_back(
      {std::make_shared<FolderInProgress>(context_, wanted, Ownership{made.st_uid, made.st_gid}),
       {},
       0,
       false});
  return true;
}

// Ends in the root, which is left by finish().
bool TreeCopier::walk() {
  for (;;) {
    if (context_.stopped()) return false;
    Level& level = levels_.back();
    if (!level.folders.empty()) {
      const std::string next = std::move(level.folders.back());
      level.folders.pop_back();
      --pendingFolders_;
      if (!enter(sources_.top()->get(), next, targets_.top()->get(), next)) return false;
    } else if (!level.read) {
      if (!read(level)) return false;
    } else if (levels_.size() == 1) {
      return true;
    } else if (!leave()) {
      return false;
    }
  }
}

// Reads on in the top directory, until its end or until enough folders are remembered.
bool TreeCopier::read(Level& level) {
  const int directory = sources_.top()->get();
  if (::lseek(directory, level.position, SEEK_SET) < 0) {
    return context_.fail(errno, directory, ".");
  }
  DirectoryReader reader(directory);
  Batch batch = newBatch(level);
  while (level.folders.empty() || pendingFolders_ < kMaxPendingFolders) {
    const auto entry = reader.next();
    if (!entry) {
      level.read = true;
      break;
    }
    level.position = reader.position();
    if (!take(level, batch, *entry)) return false;
  }
  send(batch);
  return reader.error() == 0 || context_.fail(reader.error(), directory, ".");
}

bool TreeCopier::take(Level& level, Batch& batch, const DirectoryReader::Entry& entry) {
  std::string name(entry.name);
  if (isFolder(name, entry.type)) {
    level.folders.push_back(std::move(name));
    ++pendingFolders_;
    return true;
  }
  batch.items.push_back({std::move(name), entry.type == DT_REG || entry.type == DT_UNKNOWN});
  if (batch.items.size() >= kMaxItemsInBatch) {
    send(batch);
    batch = newBatch(level);
  }
  return !context_.stopped();
}

bool TreeCopier::isFolder(const std::string& name, unsigned char type) const {
  if (type != DT_UNKNOWN) return type == DT_DIR;
  struct stat status {};
  return ::fstatat(sources_.top()->get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISDIR(status.st_mode);
}

Batch TreeCopier::newBatch(const Level& level) const {
  return {sources_.top(), targets_.top(), level.folder, {}};
}

void TreeCopier::send(Batch& batch) {
  if (batch.items.empty()) return;
  auto shared = std::make_shared<Batch>(std::move(batch));
  queue_.push([this, shared] { copyBatch(*shared, context_, *groups_); });
}

bool TreeCopier::leave() {
  Level level = std::move(levels_.back());
  levels_.pop_back();
  level.folder->setDirectories(sources_.top(), targets_.top());
  for (DirectoryChain* chain : {&sources_, &targets_}) {
    const int error = chain->pop();
    if (error != 0) return context_.fail(error, chain->top()->get(), "..");
  }
  return true;
}

bool TreeCopier::finish() {
  if (context_.stopped()) return false;
  if (const int error = groups_->finish(); error != 0) {
    return context_.fail(error, root_->get(), ".");
  }
  levels_.back().folder->setDirectories(sources_.top(), targets_.top());
  levels_.clear();
  return !context_.stopped();
}

}  // namespace

bool copyTree(const Location& source, const Location& target, CopyContext& context) {
  return TreeCopier(context).copy(source, target);
}

}  // namespace platform
