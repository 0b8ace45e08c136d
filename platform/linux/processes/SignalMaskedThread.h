#pragma once

#include <functional>
#include <thread>

namespace platform {

// Runs `work`, which must not throw, on a new thread to which no signal comes but those of its own
// faults: the others are the business of the threads that were there before. Not joinable when no
// thread can be made.
std::thread startSignalMaskedThread(std::function<void()> work);

}  // namespace platform
