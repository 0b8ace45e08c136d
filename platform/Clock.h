#pragma once

#include <chrono>

// Dates and fixed pauses. The pauses are a source file of their own, so that tests can link one in
// which they pass quickly.
namespace platform::clock {

using Seconds = std::chrono::duration<double>;

// Spins a processor for `duration`, neither sleeping nor yielding. Any thread.
void spin(Seconds duration);

// Blocks the calling thread for `duration`; zero or less returns at once. A signal does not shorten
// it. Any thread.
void sleep(Seconds duration);

}  // namespace platform::clock
