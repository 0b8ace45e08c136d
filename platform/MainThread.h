#pragma once

#include <chrono>
#include <functional>

namespace platform::main_thread {

enum class Wait { no, untilDone };

// Whether the caller is on the main thread, the one that entered `main`.
bool isCurrent() noexcept;

// Runs `work` on the main thread, in the order of the calls. From the main thread itself
// Wait::untilDone runs it at once, before the call returns; everything else is queued for the main
// loop, which runs it as soon as it is free, also when the loop has not started yet.
//
// With Wait::untilDone the caller is blocked until `work` has run. When the main loop has ended,
// callers that wait are released and `work` is dropped. A platform::Exception that `work` lets
// through is written to the console and the loop goes on. Thread-safe.
void perform(std::function<void()> work, Wait wait);

// On the main thread: takes at most one pending event of the loop (user interface, or work sent by
// `perform`), waiting at most `limit` for it, and handles it. Answers whether there was one.
bool pumpOneEvent(std::chrono::duration<double> limit);

}  // namespace platform::main_thread
