#include "platform/linux/files/SortedNames.h"

#include <algorithm>

namespace platform {
namespace {

constexpr std::size_t kKeyLength = sizeof(std::uint64_t);

std::string_view behind(std::string_view text, std::size_t position) {
  return text.substr(std::min(position, text.size()));
}

// The first bytes as a number of the same order. No name holds the zero that fills it up.
std::uint64_t keyOf(std::string_view text) {
  std::uint64_t key = 0;
  for (std::size_t i = 0; i < kKeyLength; ++i) {
    key = key << 8U | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0U);
  }
  return key;
}

}  // namespace

void SortedNames::add(std::string_view name, unsigned char type) {
  items_.push_back({.key = 0,
                    .offset = text_.size(),
                    .length = static_cast<std::uint16_t>(name.size()),
                    .type = type});
  text_ += name;
}

std::string_view SortedNames::nameOf(const Item& item) const {
  return std::string_view(text_).substr(item.offset, item.length);
}

// How many bytes all names begin with.
std::size_t SortedNames::commonPrefix() const {
  if (items_.empty()) return 0;
  std::string_view common = nameOf(items_.front());
  for (const Item& item : items_) {
    const std::string_view name = nameOf(item);
    if (name.starts_with(common)) continue;
    const auto differing = std::ranges::mismatch(common, name).in1;
    common = common.substr(0, static_cast<std::size_t>(differing - common.begin()));
  }
  return common.size();
}

void SortedNames::sort() {
  const std::size_t prefix = commonPrefix();
  for (Item& item : items_) item.key = keyOf(behind(nameOf(item), prefix));
  std::ranges::sort(items_, [&](const Item& a, const Item& b) {
    if (a.key != b.key) return a.key < b.key;
    return behind(nameOf(a), prefix + kKeyLength) < behind(nameOf(b), prefix + kKeyLength);
  });
}

}  // namespace platform
