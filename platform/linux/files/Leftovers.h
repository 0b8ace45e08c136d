#pragma once

#include <ctime>

namespace platform {

// Removes what a killed process of this user has left in the open `folder` under a hidden name of
// TemporaryName.h, and what nobody has changed for a day before `now`. Looks only once into each
// folder in the life of this process, for a folder may be large. Blocks for the disk. Thread-safe.
void removeLeftovers(int folder, std::time_t now = std::time(nullptr));

}  // namespace platform
