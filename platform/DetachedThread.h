#pragma once

#include <functional>

namespace platform {

// Runs `work` on a new thread that nobody waits for: the process may end while it runs. Raises
// platform::Exception (kGeneric) with the system's reason when no thread can be made. An exception
// that `work` lets through ends the process. Thread-safe.
void detachThread(std::function<void()> work);

}  // namespace platform
