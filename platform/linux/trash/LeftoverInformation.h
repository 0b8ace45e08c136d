#pragma once

#include "platform/linux/trash/TrashFolder.h"

namespace platform {

// Takes away information of the Trash that has no item and is older than a day: a process was
// killed before it had moved the item. What is newer may belong to one that is on its way.
void removeLeftoverInformation(const TrashFolder& trash);

}  // namespace platform
