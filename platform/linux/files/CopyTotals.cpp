#include "platform/linux/files/CopyTotals.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/files/CopyQueue.h"
#include "platform/linux/files/DirectoryChain.h"
#include "platform/linux/files/DirectoryReader.h"

namespace platform {
namespace {

// How many names of folders that are still to be counted may be remembered at once.
constexpr std::size_t kMaxPendingFolders = 16384;
// How many bytes of files' names are handed to a thread at once.
constexpr std::size_t kMaxNamesInBatch = 4096;

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

// The folders are read by one thread; what takes most of the time, looking at their files, is done
// by all.
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
  struct Batch {
    DirectoryChain::Directory folder;
    std::string files;  // their names, each with the zero that ends it
  };

  void walk();
  void enter(int folder, const std::string& name);
  void read(Level& level);
  void take(Level& level, Batch& batch, const DirectoryReader::Entry& entry);
  void send(Batch& batch);
  void addItem();
  CopyTotals totals() const;

  const std::function<bool(const CopyTotals&)>& goOn_;
  DirectoryChain chain_;
  std::vector<Level> levels_;
  std::size_t pendingFolders_ = 0;
  std::uint64_t items_ = 0;
  bool stopped_ = false;
  std::atomic<std::uint64_t> bytes_ = 0;
  CopyQueue queue_;  // last: its threads use what is above
};

CopyTotals CountingWalk::count(const Location& source) {
  addItem();
  bytes_ += look(source.descriptor(), source.name.c_str()).bytes;
  enter(source.descriptor(), source.name);
  walk();
  queue_.finish();
  return totals();
}

CopyTotals CountingWalk::totals() const {
  return {.items = items_, .bytes = bytes_};
}

void CountingWalk::addItem() {
  ++items_;
  stopped_ = stopped_ || !goOn_(totals());
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
  Batch batch = {chain_.top(), {}};
  level.read = ::lseek(directory, level.position, SEEK_SET) < 0;
  while (!level.read && !stopped_ &&
         (level.folders.empty() || pendingFolders_ < kMaxPendingFolders)) {
    const auto entry = reader.next();
    level.read = !entry;
    if (!entry) break;
    level.position = reader.position();
    take(level, batch, *entry);
  }
  send(batch);
}

void CountingWalk::take(Level& level, Batch& batch, const DirectoryReader::Entry& entry) {
  addItem();
  const char* const name = entry.name.data();
  const bool unknown = entry.type == DT_UNKNOWN;
  const mode_t kind =
      unknown ? look(batch.folder->get(), name).kind : static_cast<mode_t>(DTTOIF(entry.type));
  if (kind == S_IFDIR) {
    level.folders.emplace_back(entry.name);
    ++pendingFolders_;
  } else if (kind == S_IFREG) {
    batch.files.append(name, entry.name.size() + 1);
    if (batch.files.size() >= kMaxNamesInBatch) send(batch);
  }
}

void CountingWalk::send(Batch& batch) {
  if (batch.files.empty()) return;
  auto sent = std::make_shared<Batch>(Batch{batch.folder, std::exchange(batch.files, {})});
  queue_.push([this, sent] {
    std::uint64_t bytes = 0;
    const char* const end = sent->files.data() + sent->files.size();
    for (const char* file = sent->files.data(); file < end; file += std::strlen(file) + 1) {
      bytes += look(sent->folder->get(), file).bytes;
    }
    bytes_ += bytes;
  });
}

}  // namespace

CopyTotals countForCopy(const Location& source,
                        const std::function<bool(const CopyTotals& soFar)>& goOn) {
  return CountingWalk(goOn).count(source);
}

}  // namespace platform
