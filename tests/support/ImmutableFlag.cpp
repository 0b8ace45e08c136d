#include "tests/support/ImmutableFlag.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <utility>

namespace test {
namespace {

bool change(const std::string& path, bool immutable) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return false;
  int flags = 0;
  bool changed = ::ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0;
  flags = immutable ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
  changed = changed && ::ioctl(descriptor, FS_IOC_SETFLAGS, &flags) == 0;
  ::close(descriptor);
  return changed;
}

}  // namespace

ImmutableFlag::ImmutableFlag(std::string path)
    : path_(std::move(path)), isSet_(change(path_, true)) {}

ImmutableFlag::~ImmutableFlag() {
  if (isSet_) change(path_, false);
}

}  // namespace test
