#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/FileSystem.h"
#include "platform/linux/files/DirectoryChain.h"
#include "platform/linux/files/DirectoryReader.h"

namespace platform::file_system {
namespace {

// How many links to folders are followed on the way to one place, as many as the system follows.
constexpr int kMaxNestedLinks = 40;

Identity identityOf(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

unsigned char typeOf(int folder, const std::string& name, unsigned char type) {
  struct stat status {};
  if (type != DT_UNKNOWN) return type;
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
  return static_cast<unsigned char>(IFTODT(status.st_mode));
}

posix::FileDescriptor openDirectory(int folder, const std::string& name, int flags) {
  return posix::FileDescriptor(
      ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags));
}

// What is shared by the walks through a tree and through the folders that its links lead to.
struct Links {
  std::set<Identity> ancestors;             // the folders that are being gone through
  std::map<Identity, std::uint64_t> sizes;  // of linked folders that were gone through
  int nested = 0;
};

class SizeWalk {
 public:
  explicit SizeWalk(Links& links) : links_(links) {}

  std::uint64_t sizeOf(posix::FileDescriptor root);

 private:
  struct Level {
    Identity identity;
    std::vector<std::string> folders;  // found in it and not yet gone through
  };

  void enter(posix::FileDescriptor directory);
  void leave();
  void read(Level& level);
  void addItem(int folder, const std::string& name);
  void addLink(int folder, const std::string& name);

  Links& links_;
  DirectoryChain chain_;
  std::vector<Level> levels_;
  std::uint64_t size_ = 0;
};

std::uint64_t SizeWalk::sizeOf(posix::FileDescriptor root) {
  enter(std::move(root));
  while (!levels_.empty()) {
    Level& level = levels_.back();
    if (level.folders.empty()) {
      leave();
      continue;
    }
    const std::string name = std::move(level.folders.back());
    level.folders.pop_back();
    enter(openDirectory(chain_.top()->get(), name, O_NOFOLLOW));
  }
  return size_;
}

// A folder that is already being gone through, to which a link has led back, adds nothing.
void SizeWalk::enter(posix::FileDescriptor directory) {
  struct stat status {};
  if (!directory || ::fstat(directory.get(), &status) != 0) return;
  if (!links_.ancestors.insert(identityOf(status)).second) return;
  chain_.push(std::move(directory));
  levels_.push_back({identityOf(status), {}});
  read(levels_.back());
}

void SizeWalk::leave() {
  links_.ancestors.erase(levels_.back().identity);
  levels_.pop_back();
  // Moved about meanwhile: what cannot be reached any more is left out.
  if (chain_.pop() == 0) return;
  for (const Level& level : levels_) links_.ancestors.erase(level.identity);
  levels_.clear();
}

void SizeWalk::read(Level& level) {
  const int directory = chain_.top()->get();
  DirectoryReader reader(directory);
  while (const auto entry = reader.next()) {
    std::string name(entry->name);
    const unsigned char type = typeOf(directory, name, entry->type);
    if (type == DT_DIR) {
      level.folders.push_back(std::move(name));
    } else if (type == DT_LNK) {
      addLink(directory, name);
    } else {
      addItem(directory, name);
    }
  }
}

void SizeWalk::addItem(int folder, const std::string& name) {
  struct stat status {};
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return;
  size_ += static_cast<std::uint64_t>(status.st_size);
}

void SizeWalk::addLink(int folder, const std::string& name) {
  struct stat target {};
  if (::fstatat(folder, name.c_str(), &target, 0) != 0 || !S_ISDIR(target.st_mode)) {
    addItem(folder, name);
    return;
  }
  const auto known = links_.sizes.find(identityOf(target));
  if (known != links_.sizes.end()) {
    size_ += known->second;
  } else if (links_.nested < kMaxNestedLinks) {
    ++links_.nested;
    const std::uint64_t size = SizeWalk(links_).sizeOf(openDirectory(folder, name, 0));
    --links_.nested;
    links_.sizes.emplace(identityOf(target), size);
    size_ += size;
  }
}

}  // namespace

std::uint64_t sizeOfFiles(const std::string& path) {
  posix::FileDescriptor directory = openDirectory(AT_FDCWD, path, 0);
  if (!directory) {
    if (isDirectory(path)) return 0;
    const std::optional<Attributes> item = attributes(path);
    return item ? item->size : 0;
  }
  Links links;
  return SizeWalk(links).sizeOf(std::move(directory));
}

std::optional<Identity> identity(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return identityOf(status);
}

}  // namespace platform::file_system
