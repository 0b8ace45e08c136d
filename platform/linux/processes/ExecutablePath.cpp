#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "platform/ProcessInfo.h"

namespace platform::process_info {
namespace {

constexpr std::string_view kRemovedMark = " (deleted)";

}  // namespace

std::string executablePath() {
  std::array<char, PATH_MAX + 32> buffer{};
  const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (length <= 0) return {};
  std::string path(buffer.data(), static_cast<std::size_t>(length));
  struct stat ignored {};
  if (path.ends_with(kRemovedMark) && ::lstat(path.c_str(), &ignored) != 0) {
    path.resize(path.size() - kRemovedMark.size());
  }
  return path;
}

}  // namespace platform::process_info
