#include <dirent.h>
#include <fcntl.h>

#include <utility>

#include "platform/FileSystem.h"
#include "platform/Wildcard.h"
#include "platform/linux/files/DirectoryReader.h"
#include "platform/linux/files/SortedNames.h"
#include "posix/FileDescriptor.h"

namespace platform::file_system {
namespace {

Kind kindOf(unsigned char type) {
  switch (type) {
    case DT_REG:
      return Kind::regular;
    case DT_DIR:
      return Kind::directory;
    case DT_LNK:
      return Kind::symbolicLink;
    default:
      return Kind::other;
  }
}

// Where the listing does not say, the item does.
Kind kindAt(const std::string& folder, std::string_view name, unsigned char type) {
  if (type != DT_UNKNOWN) return kindOf(type);
  const std::optional<Attributes> found = attributes(folder + "/" + std::string(name));
  return found ? found->kind : Kind::other;
}

template <typename Wanted>
std::optional<SortedNames> names(const std::string& path, Wanted isWanted) {
  const posix::FileDescriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) return std::nullopt;
  DirectoryReader reader(directory.get());
  SortedNames found;
  while (const auto entry = reader.next()) {
    if (isWanted(entry->name)) found.add(entry->name, entry->type);
  }
  return reader.error() == 0 ? std::optional(std::move(found)) : std::nullopt;
}

}  // namespace

void visitEntriesLike(const std::string& path, std::string_view pattern,
                      const std::function<void(std::string_view name, Kind kind)>& visit) {
  auto found = names(path, [&](std::string_view name) { return isLike(name, pattern); });
  if (!found) return;
  found->takeAll(
      [&](std::string_view name, unsigned char type) { visit(name, kindAt(path, name, type)); });
}

std::optional<std::vector<std::string>> list(const std::string& path) {
  auto found = names(path, [](std::string_view) { return true; });
  if (!found) return std::nullopt;
  std::vector<std::string> sorted;
  sorted.reserve(found->size());
  found->takeAll([&](std::string_view name, unsigned char) { sorted.emplace_back(name); });
  return sorted;
}

}  // namespace platform::file_system
