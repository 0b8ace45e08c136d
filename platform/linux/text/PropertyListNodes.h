#pragma once

#include <locale.h>
#include <plist/plist.h>

#include <memory>
#include <type_traits>

#include "platform/PropertyList.h"
#include "platform/linux/text/PropertyListNode.h"

// Values to and from the nodes of the property list library.
namespace platform::property_list_nodes {

// While one lives, the calling thread reads and prints numbers as in the C locale: the library goes
// by the locale, which the toolkit sets.
class CLocale {
 public:
  CLocale();
  ~CLocale();
  CLocale(const CLocale&) = delete;
  CLocale& operator=(const CLocale&) = delete;

 private:
  locale_t previous_;
};

// Recurse as deep as the value is nested.
PropertyList::Dictionary dictionaryOf(plist_t node);
Node nodeOf(const PropertyList::Dictionary& dictionary);

}  // namespace platform::property_list_nodes
