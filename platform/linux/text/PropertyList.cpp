#include "platform/PropertyList.h"

#include <plist/plist.h>

#include <string_view>

#include "platform/FileSystem.h"
#include "platform/FolderLock.h"
#include "platform/Path.h"
#include "platform/linux/Allocated.h"
#include "platform/linux/text/PropertyListCheck.h"
#include "platform/linux/text/PropertyListNodes.h"

namespace platform::property_list {
namespace {

constexpr std::string_view kBinaryMagic = "bplist0";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::uint64_t kLargestFile = 64ULL << 20;
constexpr int kMostSetAside = 1000;

bool isBinary(std::string_view bytes) {
  return bytes.starts_with(kBinaryMagic);
}

property_list_nodes::Node parsed(std::string_view bytes) {
  plist_t root = nullptr;
  const auto length = static_cast<std::uint32_t>(bytes.size());
  if (isBinary(bytes)) {
    if (property_list_check::isReasonableBinary(bytes)) {
      plist_from_bin(bytes.data(), length, &root);
    }
  } else if (property_list_check::isReasonableXml(bytes)) {
    plist_from_xml(bytes.data(), length, &root);
  }
  return property_list_nodes::Node(root);
}

}  // namespace

std::optional<PropertyList::Dictionary> parse(std::string_view bytes) {
  if (bytes.starts_with(kByteOrderMark)) bytes.remove_prefix(kByteOrderMark.size());
  if (bytes.empty() || bytes.size() > kLargestFile) return std::nullopt;
  const property_list_nodes::CLocale plainNumbers;
  const auto root = parsed(bytes);
  if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return std::nullopt;
  return property_list_nodes::dictionaryOf(root.get());
}

std::optional<PropertyList::Dictionary> read(const std::string& path) {
  const auto bytes = file_system::read(path, kLargestFile);
  return bytes ? parse(*bytes) : std::nullopt;
}

std::string serialized(const PropertyList::Dictionary& dictionary, Format format) {
  const property_list_nodes::CLocale plainNumbers;
  const auto root = property_list_nodes::nodeOf(dictionary);
  char* bytes = nullptr;
  std::uint32_t length = 0;
  if (format == Format::binary) {
    plist_to_bin(root.get(), &bytes, &length);
  } else {
    plist_to_xml(root.get(), &bytes, &length);
  }
  const Allocated<char> owned(bytes);
  return bytes != nullptr ? std::string(bytes, length) : std::string();
}

Status write(const std::string& path, const PropertyList::Dictionary& dictionary, Format format) {
  return file_system::writeAtomically(path, serialized(dictionary, format));
}

void setAsideDamaged(const std::string& path) {
  const auto attributes = file_system::attributes(path);
  if (!attributes || attributes->kind != file_system::Kind::regular || read(path)) return;
  const std::string aside = path + ".damaged";
  if (file_system::move(path, aside).ok()) return;
  for (int number = 2; number <= kMostSetAside; ++number) {
    if (file_system::move(path, aside + "-" + std::to_string(number)).ok()) return;
  }
}

Status merge(const std::string& path, const PropertyList::Dictionary& changes,
             std::chrono::milliseconds patience) {
  const auto lock = FolderLock::acquire(path::deletingLastComponent(path), patience);
  setAsideDamaged(path);
  auto contents = read(path).value_or(PropertyList::Dictionary());
  for (const auto& [key, value] : changes) contents.insert_or_assign(key, value);
  return write(path, contents, Format::binary);
}

}  // namespace platform::property_list
