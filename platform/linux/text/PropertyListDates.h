#pragma once

#include "platform/PropertyList.h"
#include "platform/linux/text/PropertyListNode.h"

// Dates in nodes. The library's own access to them is by 32-bit seconds and cut microseconds, so
// that a date which is read and written again becomes another; here they keep their fraction.
namespace platform::property_list_nodes {

// The date of a date node; one that system_clock cannot hold becomes its first or last.
PropertyList::Date dateOf(plist_t node);
Node dateNode(PropertyList::Date date);

}  // namespace platform::property_list_nodes
