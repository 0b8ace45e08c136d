#include "platform/linux/files/CopyTotals.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/linux/files/DirectoryChain.h"
#include "platform/linux/files/DirectoryReader.h"

namespace platform {
namespace {

// How many names of folders that are still to be counted may be remembered at once.
constexpr std::size_t kMaxPendingFolders = 16384;

// What an entry is, and its bytes when it is a file.
struct Found {
  mode_t kind = 0;
  std::uint64_t bytes = 0;
};

Found look(int folder, const char* name) {
  struct stat status {};
  if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return {};
  const bool file = S_ISREG(status.st_mode);
  return {status.st_mode & S_IFMT, file ? static_cast<std::uint64_t>(status.st_size) : 0};
}

// Only files, and what the file system does not tell the kind of, need to be looked at.
Found look(int folder, const DirectoryReader::Entry& entry) {
  const bool told = entry.type != DT_UNKNOWN && entry.type != DT_REG;
  return told ? Found{static_cast<mode_t>(DTTOIF(entry.type)), 0} : look(folder, entry.name.data());
}

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

  void walk();
  void enter(int folder, const std::string& name);
  void read(Level& level);
  void take(Level& level, const DirectoryReader::Entry& entry);
  void add(const Found& found);

  const std::function<bool(const CopyTotals&)>& goOn_;
  DirectoryChain chain_;
  std::vector<Level> levels_;
  std::size_t pendingFolders_ = 0;
  CopyTotals totals_;
  bool stopped_ = false;
};

CopyTotals CountingWalk::count(const Location& source) {
  add(look(source.descriptor(), source.name.c_str()));
  enter(source.descriptor(), source.name);
  walk();
  return totals_;
}

void CountingWalk::add(const Found& found) {
  ++totals_.items;
  totals_.bytes += found.bytes;
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
      levels_.pop_back();
      // Moved about meanwhile: what cannot be reached any more is left out.
      if (chain_.pop() != 0) levels_.clear();
    }
  }
}

// Nothing happens where there is no folder, or none that may be read.
void CountingWalk::enter(int folder, const std::string& name) {
  posix::FileDescriptor directory(
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
    take(level, *entry);
  }
}

void CountingWalk::take(Level& level, const DirectoryReader::Entry& entry) {
  const Found found = look(chain_.top()->get(), entry);
  add(found);
  if (found.kind != S_IFDIR) return;
  level.folders.emplace_back(entry.name);
  ++pendingFolders_;
}

}  // namespace

CopyTotals countForCopy(const Location& source,
                        const std::function<bool(const CopyTotals& soFar)>& goOn) {
  return CountingWalk(goOn).count(source);
}

}  // namespace platform
