#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/FileSystem.h"
#include "posix/FileDescriptor.h"

namespace platform::file_system {
namespace {

constexpr std::size_t kFirstChunk = 4096;

// O_NONBLOCK: opening a pipe that nobody writes to must not hang.
posix::FileDescriptor openRegularFile(const std::string& path) {
  posix::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return file;
}

}  // namespace

std::optional<std::string> read(const std::string& path, std::uint64_t limit) {
  const posix::FileDescriptor file = openRegularFile(path);
  if (!file) return std::nullopt;
  std::string contents;
  std::size_t used = 0;
  for (;;) {
    if (used == contents.size()) contents.resize(std::max(kFirstChunk, used * 2));
    const ssize_t count = ::read(file.get(), contents.data() + used, contents.size() - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
    if (used > limit) return std::nullopt;
  }
  contents.resize(used);
  return contents;
}

}  // namespace platform::file_system
