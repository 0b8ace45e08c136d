#pragma once

#include "platform/FileReference.h"
#include "platform/Status.h"

namespace platform {

// Tells whoever watches the item or its folder, above all file managers, to look at it again. The
// item keeps its contents, times and permissions; only its time of last status change moves, as
// whatever a watcher can see moves it. Fails when the reference refers to nothing, when the item is
// gone, and when the user does not own it. Any thread; waits for nobody.
Status notifyItemChanged(const FileReference& item);

}  // namespace platform
