#pragma once

#include "platform/Status.h"
#include "platform/linux/files/Location.h"

namespace platform {

// Moves an item to a name that must be free, also across file systems; see file_system::move.
Status moveItem(const Location& from, const Location& to);

}  // namespace platform
