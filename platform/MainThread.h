#pragma once

#include <chrono>
#include <functional>

namespace platform::main_thread {

enum class Wait { no, untilDone };

// Whether the caller is on the main thread, the one that entered `main`.
bool isCurrent() noexcept;

// Runs `work` on the main thread, in the order of the calls. From the main thread itself
// Wait::untilDone calls it at once, as a plain call would: what it throws reaches the caller.
// Everything else is queued for the main loop, which runs it as soon as it is free; what is queued
// before the loop starts runs when it does.
//
// With Wait::untilDone another thread is blocked until `work` has run. When the main loop has
// ended, callers that wait are released and `work` is dropped. A platform::Exception that queued
// work lets through is written to the console and the loop goes on; any other exception ends the
// process. Thread-safe.
void perform(std::function<void()> work, Wait wait);

// On the main thread: takes one pending event of the loop (user interface, or work sent by
// `perform`), waiting at most `limit` for it, and handles it. Answers whether there was one. Where
// several events are ready at the same moment they may be handled together. If the event ends the
// application, the process exits within the call. On another thread: false at once.
bool pumpOneEvent(std::chrono::duration<double> limit);

}  // namespace platform::main_thread
