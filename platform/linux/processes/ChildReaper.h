#pragma once

#include <memory>

#include "platform/linux/processes/ChildHandle.h"

namespace platform {

// Collects a child that nobody waits for once it ends, so that it does not stay behind as a zombie.
// Returns at once. One thread does this for all such children and lives only while there are any.
void collectInBackground(std::shared_ptr<ChildHandle> child);

}  // namespace platform
