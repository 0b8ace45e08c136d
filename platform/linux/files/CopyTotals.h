#pragma once

#include <cstdint>
#include <functional>

#include "platform/linux/files/Location.h"

namespace platform {

// What a copy has to do, in the measure in which file_system::CopyObserver is told of it.
struct CopyTotals {
  std::uint64_t items = 0;
  std::uint64_t bytes = 0;
};

// Counts an item with everything below it, following no link. What cannot be looked at counts as
// nothing. `goOn` is asked for every item, with what was found up to now; when it answers no, that
// is the result. Memory and open files do not grow with the tree.
CopyTotals countForCopy(const Location& source,
                        const std::function<bool(const CopyTotals& soFar)>& goOn);

}  // namespace platform
