#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/FileSystem.h"
#include "platform/ProcessInfo.h"
#include "platform/linux/personal/PersonsChild.h"
#include "platform/linux/users/PlaceOwner.h"
#include "posix/FileDescriptor.h"

namespace platform::file_system {
namespace {

constexpr std::size_t kFirstChunk = 4096;

// What a path leads to is looked at before it is opened: opening a device may do something, and
// opening a pipe that nobody writes to must not hang.
posix::FileDescriptor openIfRegular(const posix::FileDescriptor& item) {
  struct stat status {};
  if (!item || ::fstat(item.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  const std::string opened = "/proc/self/fd/" + std::to_string(item.get());
  return posix::FileDescriptor(
      ::open(opened.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

std::optional<std::string> readToEnd(const posix::FileDescriptor& file, std::uint64_t limit) {
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

std::optional<std::string> readByOwner(std::uint32_t owner, const std::string& path,
                                       std::uint64_t limit) {
  personal::Texts answer = personal::PersonsChild::of(owner).ask(
      {personal::operation::kRead, path, std::to_string(limit)});
  if (answer.size() < 2 || answer.front() != personal::kYes) return std::nullopt;
  return std::move(answer[1]);
}

}  // namespace

std::optional<std::string> read(const std::string& path, std::uint64_t limit) {
  if (process_info::isSuperuser()) {
    const Reached reached = reach(path);
    if (reached.owner) return readByOwner(*reached.owner, path, limit);
    return readToEnd(openIfRegular(reached.item), limit);
  }
  const posix::FileDescriptor item(::open(path.c_str(), O_PATH | O_CLOEXEC));
  return readToEnd(openIfRegular(item), limit);
}

}  // namespace platform::file_system
