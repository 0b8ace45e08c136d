#include "platform/linux/files/DirectoryChain.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace platform {
namespace {

constexpr std::size_t kKeptOpen = 32;

}  // namespace

void DirectoryChain::push(posix::FileDescriptor directory) {
  links_.push_back({std::make_shared<const posix::FileDescriptor>(std::move(directory)), 0, 0});
  if (links_.size() > kKeptOpen) close(links_[links_.size() - 1 - kKeptOpen]);
}

int DirectoryChain::pop() {
  if (links_.size() > 1 && !links_[links_.size() - 2].directory) {
    if (const int error = reopen(links_[links_.size() - 2], top()->get()); error != 0) return error;
  }
  links_.pop_back();
  return 0;
}

// static
void DirectoryChain::close(Link& link) {
  struct stat status {};
  // One that cannot be recognised again stays open.
  if (!link.directory || ::fstat(link.directory->get(), &status) != 0) return;
  link = {nullptr, status.st_dev, status.st_ino};
}

// static
int DirectoryChain::reopen(Link& link, int child) {
  posix::FileDescriptor parent(::openat(child, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat status {};
  if (!parent || ::fstat(parent.get(), &status) != 0) return errno;
  if (status.st_dev != link.device || status.st_ino != link.inode) return ESTALE;
  link.directory = std::make_shared<const posix::FileDescriptor>(std::move(parent));
  return 0;
}

}  // namespace platform
