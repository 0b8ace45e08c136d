#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// Names of a folder's entries that are put in the order of their bytes. They stand one behind the
// other in one text, and what is sorted are small records with the first bytes that may differ:
// names in a folder tend to begin alike.
class SortedNames {
 public:
  void add(std::string_view name, unsigned char type);
  std::size_t size() const noexcept { return items_.size(); }

  // Calls `take(name, type)` for each, in order. Once.
  template <class Take>
  void takeAll(Take take) {
    sort();
    for (const Item& item : items_) take(nameOf(item), item.type);
  }

 private:
  struct Item {
    std::uint64_t key = 0;
    std::size_t offset = 0;
    std::uint16_t length = 0;
    unsigned char type = 0;
  };

  void sort();
  std::size_t commonPrefix() const;
  std::string_view nameOf(const Item& item) const;

  std::string text_;
  std::vector<Item> items_;
};

}  // namespace platform
