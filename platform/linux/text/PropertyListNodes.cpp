#include "platform/linux/text/PropertyListNodes.h"

#include <cstring>
#include <utility>

#include "platform/Text.h"
#include "platform/linux/Allocated.h"
#include "platform/linux/text/PropertyListDates.h"

namespace platform::property_list_nodes {
namespace {

// How XML lists write the type that only archives have, a reference to one of their objects.
constexpr char kUniqueId[] = "CF$UID";

locale_t cLocale() {
  static locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

PropertyList valueOf(plist_t node);

std::string stringOf(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text != nullptr ? std::string(text, length) : std::string();
}

PropertyList::Bytes bytesOf(plist_t node) {
  std::uint64_t length = 0;
  const char* data = plist_get_data_ptr(node, &length);
  if (data == nullptr || length == 0) return {};
  PropertyList::Bytes bytes(length);
  std::memcpy(bytes.data(), data, length);
  return bytes;
}

std::int64_t integerOf(plist_t node) {
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  return static_cast<std::int64_t>(value);
}

// By iterator: the library finds an item by its number only by walking to it.
PropertyList::Array arrayOf(plist_t node) {
  PropertyList::Array array;
  plist_array_iter state = nullptr;
  plist_array_new_iter(node, &state);
  const Allocated<void> iterator(state);
  for (;;) {
    plist_t item = nullptr;
    plist_array_next_item(node, state, &item);
    if (item == nullptr) return array;
    array.push_back(valueOf(item));
  }
}

PropertyList valueOf(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return PropertyList(value != 0);
    }
    case PLIST_UINT:
      return PropertyList(integerOf(node));
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return PropertyList(value);
    }
    case PLIST_DATE:
      return PropertyList(dateOf(node));
    case PLIST_DATA:
      return PropertyList(bytesOf(node));
    case PLIST_ARRAY:
      return PropertyList(arrayOf(node));
    case PLIST_DICT:
      return PropertyList(dictionaryOf(node));
    case PLIST_UID: {
      std::uint64_t value = 0;
      plist_get_uid_val(node, &value);
      return PropertyList(
          PropertyList::Dictionary{{kUniqueId, PropertyList(static_cast<std::int64_t>(value))}});
    }
    default:
      return PropertyList(stringOf(node));
  }
}

// The number in a dictionary that stands for a reference; none in any other, or when it is larger
// than the library writes.
std::optional<std::uint32_t> uniqueIdIn(const PropertyList::Dictionary& dictionary) {
  const auto found = dictionary.find(kUniqueId);
  if (dictionary.size() != 1 || found == dictionary.end()) return std::nullopt;
  const auto* value = found->second.get<std::int64_t>();
  if (value == nullptr || !std::in_range<std::uint32_t>(*value)) return std::nullopt;
  return static_cast<std::uint32_t>(*value);
}

// Makes the node of one value.
struct MakeNode {
  Node operator()(const std::string& text) const {
    return Node(plist_new_string(text::validUtf8(text).c_str()));
  }
  Node operator()(bool value) const { return Node(plist_new_bool(value ? 1 : 0)); }
  Node operator()(std::int64_t value) const {
    return Node(plist_new_uint(static_cast<std::uint64_t>(value)));
  }
  Node operator()(double value) const { return Node(plist_new_real(value)); }
  Node operator()(PropertyList::Date value) const { return dateNode(value); }
  Node operator()(const PropertyList::Bytes& bytes) const {
    return Node(plist_new_data(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  }
  Node operator()(const PropertyList::Array& array) const {
    Node node(plist_new_array());
    for (const auto& item : array) {
      plist_array_append_item(node.get(), std::visit(*this, item.value()).release());
    }
    return node;
  }
  Node operator()(const PropertyList::Dictionary& dictionary) const {
    if (const auto uniqueId = uniqueIdIn(dictionary)) return Node(plist_new_uid(*uniqueId));
    return nodeOf(dictionary);
  }
};

}  // namespace

CLocale::CLocale() : previous_(::uselocale(cLocale())) {}

CLocale::~CLocale() {
  ::uselocale(previous_);
}

PropertyList::Dictionary dictionaryOf(plist_t node) {
  PropertyList::Dictionary dictionary;
  plist_dict_iter state = nullptr;
  plist_dict_new_iter(node, &state);
  const Allocated<void> iterator(state);
  for (;;) {
    char* text = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(node, state, &text, &value);
    const Allocated<char> key(text);
    if (value == nullptr) return dictionary;
    if (key) dictionary.insert_or_assign(key.get(), valueOf(value));
  }
}

Node nodeOf(const PropertyList::Dictionary& dictionary) {
  Node node(plist_new_dict());
  for (const auto& [key, value] : dictionary) {
    plist_dict_set_item(node.get(), text::validUtf8(key).c_str(),
                        std::visit(MakeNode(), value.value()).release());
  }
  return node;
}

}  // namespace platform::property_list_nodes
