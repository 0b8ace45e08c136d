#include "platform/linux/files/TreeWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/linux/files/DirectoryReader.h"

namespace platform {
namespace {

// How many names of folders that are still to be gone into may be remembered at once.
constexpr std::size_t kMaxPendingFolders = 16384;

// Where the listing does not say, the item does.
unsigned char typeAt(int folder, const DirectoryReader::Entry& entry) {
  struct stat status {};
  if (entry.type != DT_UNKNOWN) return entry.type;
  if (::fstatat(folder, entry.name.data(), &status, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
  return static_cast<unsigned char>(IFTODT(status.st_mode));
}

}  // namespace

posix::FileDescriptor openFolder(int parent, const std::string& name) {
  return posix::FileDescriptor(
      ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

void TreeWalk::walk(int parent, const std::string& name) {
  parent_ = parent;
  enter(parent, name);
  while (!levels_.empty() && !visitor_.stopped()) step();
}

void TreeWalk::step() {
  Level& level = levels_.back();
  if (!level.folders.empty()) {
    std::string next = std::move(level.folders.back());
    level.folders.pop_back();
    --pendingFolders_;
    enter(chain_.top()->get(), std::move(next));
  } else if (!level.read) {
    read(level);
  } else {
    leave();
  }
}

void TreeWalk::enter(int parent, std::string name) {
  posix::FileDescriptor directory = visitor_.enter(parent, name);
  if (!directory) return;
  chain_.push(std::move(directory));
  levels_.push_back({std::move(name), {}, 0, false});
}

// Reads on in the top directory, until its end or until enough folders are remembered.
void TreeWalk::read(Level& level) {
  const int directory = chain_.top()->get();
  const bool again = level.position != 0;
  const off_t begin = readOn_ == ReadOn::whereItStopped ? level.position : 0;
  if (again && ::lseek(directory, begin, SEEK_SET) < 0) {
    level.read = true;
    return visitor_.failed(errno, directory, ".");
  }
  DirectoryReader reader(directory);
  while (level.folders.empty() || pendingFolders_ < kMaxPendingFolders) {
    const auto entry = reader.next();
    level.read = !entry;
    if (!entry) break;
    level.position = reader.position();
    visit(level, {entry->name, typeAt(directory, *entry)});
    if (visitor_.stopped()) return;
  }
  if (reader.error() != 0) visitor_.failed(reader.error(), directory, ".");
}

void TreeWalk::visit(Level& level, TreeVisitor::Item item) {
  if (!visitor_.visit(chain_.top(), item)) return;
  level.folders.emplace_back(item.name);
  ++pendingFolders_;
}

void TreeWalk::leave() {
  const TreeVisitor::Directory folder = chain_.top();
  std::string name = std::move(levels_.back().name);
  levels_.pop_back();
  if (const int error = chain_.pop(); error != 0) {
    levels_.clear();
    return visitor_.failed(error, folder->get(), "..");
  }
  const int parent = levels_.empty() ? parent_ : chain_.top()->get();
  if (visitor_.leave(folder, parent, name)) enter(parent, std::move(name));
}

}  // namespace platform
