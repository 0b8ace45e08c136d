#pragma once

#include "platform/linux/files/CopyContext.h"
#include "platform/linux/files/Location.h"
#include "platform/linux/files/StagedItem.h"

namespace platform {

// Whether `source` can be copied to `target` as far as can be told without copying: it is there,
// the target's name is free, in a folder that may be written, and not inside it.
Status checkCopy(const Location& source, const Location& target);

// Copies `source` to the hidden name, closed to others until it is complete. What is there after a
// failure goes with the staged item. `observer` may be null.
Status copyTo(const StagedItem& staged, const Location& source,
              file_system::CopyObserver* observer);

// file_system::copy for two locations.
Status copyItem(const Location& source, const Location& target,
                file_system::CopyObserver* observer);

}  // namespace platform
