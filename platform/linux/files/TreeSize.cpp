#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/FileSystem.h"
#include "platform/linux/files/TreeWalk.h"

namespace platform::file_system {
namespace {

// How many links to folders are followed on the way to one place, as many as the system follows.
constexpr int kMaxNestedLinks = 40;

Identity identityOf(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

// What is shared by the walks through a tree and through the folders that its links lead to.
struct Links {
  std::set<Identity> ancestors;             // the folders that are being gone through
  std::map<Identity, std::uint64_t> sizes;  // of linked folders that were gone through
  int nested = 0;
};

class Sizing final : public TreeVisitor {
 public:
  explicit Sizing(Links& links) : links_(links) {}

  // Of what is in the directory `name` of `parent`, or where the link of that name leads.
  std::uint64_t sizeOf(int parent, const std::string& name);

  posix::FileDescriptor enter(int parent, const std::string& name) override;
  bool visit(const Directory& folder, const Item& item) override;
  bool leave(const Directory& folder, int parent, const std::string& name) override;

 private:
  posix::FileDescriptor open(int parent, const std::string& name) const;
  void addItem(int folder, const char* name);
  void addLink(int folder, const char* name);
  void leaveTop();

  Links& links_;
  std::vector<Identity> folders_;  // that are being gone through
  bool entered_ = false;           // the first of them
  std::uint64_t size_ = 0;
};

std::uint64_t Sizing::sizeOf(int parent, const std::string& name) {
  TreeWalk(*this).walk(parent, name);
  while (!folders_.empty()) leaveTop();
  return size_;
}

posix::FileDescriptor Sizing::open(int parent, const std::string& name) const {
  if (entered_) return openFolder(parent, name);
  return posix::FileDescriptor(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// A folder that is already being gone through, to which a link has led back, adds nothing.
posix::FileDescriptor Sizing::enter(int parent, const std::string& name) {
  posix::FileDescriptor directory = open(parent, name);
  entered_ = true;
  struct stat status {};
  if (!directory || ::fstat(directory.get(), &status) != 0) return {};
  if (!links_.ancestors.insert(identityOf(status)).second) return {};
  folders_.push_back(identityOf(status));
  return directory;
}

bool Sizing::visit(const Directory& folder, const Item& item) {
  if (item.type == DT_LNK) {
    addLink(folder->get(), item.name.data());
  } else if (item.type != DT_DIR) {
    addItem(folder->get(), item.name.data());
  }
  return item.type == DT_DIR;
}

bool Sizing::leave(const Directory&, int, const std::string&) {
  leaveTop();
  return false;
}

void Sizing::leaveTop() {
  links_.ancestors.erase(folders_.back());
  folders_.pop_back();
}

void Sizing::addItem(int folder, const char* name) {
  struct stat status {};
  if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
  size_ += static_cast<std::uint64_t>(status.st_size);
}

void Sizing::addLink(int folder, const char* name) {
  struct stat target {};
  if (::fstatat(folder, name, &target, 0) != 0 || !S_ISDIR(target.st_mode)) {
    return addItem(folder, name);
  }
  const auto known = links_.sizes.find(identityOf(target));
  if (known != links_.sizes.end()) {
    size_ += known->second;
  } else if (links_.nested < kMaxNestedLinks) {
    ++links_.nested;
    const std::uint64_t size = Sizing(links_).sizeOf(folder, name);
    --links_.nested;
    links_.sizes.emplace(identityOf(target), size);
    size_ += size;
  }
}

}  // namespace

std::uint64_t sizeOfFiles(const std::string& path) {
  if (!isDirectory(path)) {
    const std::optional<Attributes> item = attributes(path);
    return item ? item->size : 0;
  }
  Links links;
  return Sizing(links).sizeOf(AT_FDCWD, path);
}

std::optional<Identity> identity(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return identityOf(status);
}

}  // namespace platform::file_system
