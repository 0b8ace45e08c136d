#pragma once

#include <chrono>
#include <functional>

// The main thread's event loop. It serves two things side by side: the work that other threads send
// to the main thread, which stands in a queue, and the descriptors that somebody watches.
namespace platform::main_loop {

// Calls `work`; a platform::Exception that it lets through is written to the console.
void callGuarded(const std::function<void()>& work);

// Any thread; see main_thread::perform. The work is called as by `callGuarded`.
void add(std::function<void()> work);
void addAndWait(std::function<void()> work);

// On the main thread: serves events until `quit`; `first` is called, guarded, before all queued
// work.
void run(std::function<void()> first);

// On the main thread: serves events once, waiting for one at most `limit`; whether there was one.
bool iterate(std::chrono::milliseconds limit);

// On the main thread: has `run` return when the event at hand has been handled. Answers false, and
// does nothing, when `run` is not what serves events now: it was never called, or an inner
// `iterate` stands above it that may not return for long.
bool quit();

// On the main thread: drops queued and future work, releases threads that wait for theirs.
void close();

// Whether `close` was called. Any thread.
bool isClosed();

// On the main thread: from now on `ready` is called, as by `callGuarded`, whenever one of `events`
// (poll(2)), an error or the other side's end is there at a descriptor, until `unwatch`. Called
// again for the same descriptor it replaces what was said before. Either may be called by `ready`.
void watch(int descriptor, short events, std::function<void()> ready);
void unwatch(int descriptor);

}  // namespace platform::main_loop
