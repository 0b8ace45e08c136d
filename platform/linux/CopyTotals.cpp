#include "platform/linux/CopyTotals.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/linux/DirectoryChain.h"
#include "platform/linux/DirectoryReader.h"

namespace platform {
namespace {

// How many names of folders that are still to be counted may be remembered at once.
constexpr std::size_t kMaxPendingFolders = 16384;

class CountingWalk {
 public:
  explicit CountingWalk(const std::function<bool(const CopyTotals&)>& goOn) : goOn_(goOn) {}

  CopyTotals count(const Location& source);

 private:
  struct Level {
    std::vector<std::string> folders;  // found in it and not yet counted
    off_t position = 0;                // where reading it goes on
    bool read = false;                 // nothing more to read
  };

  void add(int folder, const std::string& name, unsigned char type);
  void walk();
  void enter(int folder, const std::string& name);
  void read(Level& level);
  void leave();

  const std::function<bool(const CopyTotals&)>& goOn_;
  DirectoryChain chain_;
  std::vector<Level> levels_;
  std::size_t pendingFolders_ = 0;
  CopyTotals totals_;
  bool stopped_ = false;
};

CopyTotals CountingWalk::count(const Location& source) {
  add(source.descriptor(), source.name, DT_UNKNOWN);
  enter(source.descriptor(), source.name);
  walk();
  return totals_;
}

// Only files have bytes; only they, and what the listing does not tell, are looked at.
void CountingWalk::add(int folder, const std::string& name, unsigned char type) {
  struct stat status {};
  if (type == DT_REG || type == DT_UNKNOWN) {
    const bool found = ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (found && S_ISREG(status.st_mode)) {
      totals_.bytes += static_cast<std::uint64_t>(status.st_size);
    }
  }
  ++totals_.items;
  stopped_ = stopped_ || !goOn_(totals_);
}

void CountingWalk::walk() {
  while (!levels_.empty() && !stopped_) {
    Level& level = levels_.back();
    if (!level.folders.empty()) {
      const std::string next = std::move(level.folders.back());
      level.folders.pop_back();
      --pendingFolders_;
      enter(chain_.top()->get(), next);
    } else if (!level.read) {
      read(level);
    } else {
      leave();
    }
  }
}

// Nothing happens where there is no folder, or none that may be read.
void CountingWalk::enter(int folder, const std::string& name) {
  FileDescriptor directory(
      ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!directory) return;
  chain_.push(std::move(directory));
  levels_.emplace_back();
}

// Reads on in the top directory, until its end or until enough folders are remembered.
void CountingWalk::read(Level& level) {
  const int directory = chain_.top()->get();
  DirectoryReader reader(directory);
  level.read = ::lseek(directory, level.position, SEEK_SET) < 0;
  while (!level.read && !stopped_ &&
         (level.folders.empty() || pendingFolders_ < kMaxPendingFolders)) {
    const auto entry = reader.next();
    level.read = !entry;
    if (!entry) break;
    level.position = reader.position();
    std::string name(entry->name);
    add(directory, name, entry->type);
    if (entry->type == DT_DIR || entry->type == DT_UNKNOWN) {
      level.folders.push_back(std::move(name));
      ++pendingFolders_;
    }
  }
}

// Moved about meanwhile: what cannot be reached any more is left out.
void CountingWalk::leave() {
  levels_.pop_back();
  if (chain_.pop() != 0) levels_.clear();
}

}  // namespace

CopyTotals countForCopy(const Location& source,
                        const std::function<bool(const CopyTotals& soFar)>& goOn) {
  return CountingWalk(goOn).count(source);
}

}  // namespace platform
