#include <dirent.h>
#include <fcntl.h>

#include <utility>

#include "platform/FileSystem.h"
#include "platform/Wildcard.h"
#include "platform/linux/DirectoryReader.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/SortedNames.h"

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

Kind kindAt(const std::string& folder, const std::string& name) {
  const std::optional<Attributes> found = attributes(folder + "/" + name);
  return found ? found->kind : Kind::other;
}

template <typename Wanted>
std::optional<SortedNames> names(const std::string& path, Wanted isWanted) {
  const FileDescriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) return std::nullopt;
  DirectoryReader reader(directory.get());
  SortedNames found;
  while (const auto entry = reader.next()) {
    if (isWanted(entry->name)) found.add(entry->name, entry->type);
  }
  return reader.error() == 0 ? std::optional(std::move(found)) : std::nullopt;
}

template <typename Wanted>
std::optional<std::vector<Entry>> sortedEntries(const std::string& path, Wanted isWanted) {
  std::optional<SortedNames> found = names(path, isWanted);
  if (!found) return std::nullopt;
  std::vector<Entry> entries;
  entries.reserve(found->size());
  found->takeAll([&](std::string_view name, unsigned char type) {
    Entry& item = entries.emplace_back(Entry{std::string(name), kindOf(type)});
    if (type == DT_UNKNOWN) item.kind = kindAt(path, item.name);
  });
  return entries;
}

bool isAny(std::string_view) {
  return true;
}

}  // namespace

std::optional<std::vector<Entry>> entries(const std::string& path) {
  return sortedEntries(path, isAny);
}

std::optional<std::vector<Entry>> entries(const std::string& path, std::string_view pattern) {
  return sortedEntries(path, [&](std::string_view name) { return isLike(name, pattern); });
}

std::optional<std::vector<std::string>> list(const std::string& path) {
  std::optional<SortedNames> found = names(path, isAny);
  if (!found) return std::nullopt;
  std::vector<std::string> sorted;
  sorted.reserve(found->size());
  found->takeAll([&](std::string_view name, unsigned char) { sorted.emplace_back(name); });
  return sorted;
}

}  // namespace platform::file_system
