#pragma once

#include <string>
#include <string_view>

namespace platform {

// A hidden name that nothing bears, ".<purpose>-<16 random hexadecimal digits>", for what stands
// beside an item while it is being made or taken away. Thread-safe.
std::string temporaryName(std::string_view purpose);

// Whether `name` is one of those, for one of the purposes for which items are staged: archiving,
// copying, moving, unpacking.
bool isTemporaryName(std::string_view name);

}  // namespace platform
