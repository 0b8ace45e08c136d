#pragma once

#include <plist/plist.h>

#include <memory>
#include <type_traits>

namespace platform::property_list_nodes {

struct FreeNode {
  void operator()(plist_t node) const { plist_free(node); }
};
// A node of the property list library that somebody owns.
using Node = std::unique_ptr<std::remove_pointer_t<plist_t>, FreeNode>;

}  // namespace platform::property_list_nodes
