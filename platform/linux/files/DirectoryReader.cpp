#include "platform/linux/files/DirectoryReader.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

bool DirectoryReader::fill() {
  const ssize_t size = ::getdents64(descriptor_, buffer_.data(), buffer_.size());
  // A directory that was removed while it was open has no more entries.
  if (size < 0 && errno != ENOENT) error_ = errno;
  begin_ = 0;
  end_ = size > 0 ? static_cast<std::size_t>(size) : 0;
  return end_ > 0;
}

std::optional<DirectoryReader::Entry> DirectoryReader::next() {
  while (begin_ < end_ || fill()) {
    const auto* entry = reinterpret_cast<const dirent64*>(buffer_.data() + begin_);
    begin_ += entry->d_reclen;
    position_ = entry->d_off;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") return Entry{name, entry->d_type};
  }
  return std::nullopt;
}

}  // namespace platform
