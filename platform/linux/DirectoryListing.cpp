#include <dirent.h>
#include <fcntl.h>

#include <algorithm>

#include "platform/FileSystem.h"
#include "platform/Wildcard.h"
#include "platform/linux/DirectoryReader.h"
#include "platform/linux/FileDescriptor.h"

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
std::optional<std::vector<Entry>> sortedEntries(const std::string& path, Wanted isWanted) {
  const FileDescriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) return std::nullopt;
  DirectoryReader reader(directory.get());
  std::vector<Entry> entries;
  while (const auto entry = reader.next()) {
    if (!isWanted(entry->name)) continue;
    Entry& item = entries.emplace_back(Entry{std::string(entry->name), kindOf(entry->type)});
    if (entry->type == DT_UNKNOWN) item.kind = kindAt(path, item.name);
  }
  if (reader.error() != 0) return std::nullopt;
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return entries;
}

}  // namespace

std::optional<std::vector<Entry>> entries(const std::string& path) {
  return sortedEntries(path, [](std::string_view) { return true; });
}

std::optional<std::vector<Entry>> entries(const std::string& path, std::string_view pattern) {
  return sortedEntries(path, [&](std::string_view name) { return isLike(name, pattern); });
}

std::optional<std::vector<std::string>> list(const std::string& path) {
  std::optional<std::vector<Entry>> found = entries(path);
  if (!found) return std::nullopt;
  std::vector<std::string> names;
  names.reserve(found->size());
  for (Entry& entry : *found) names.push_back(std::move(entry.name));
  return names;
}

}  // namespace platform::file_system
