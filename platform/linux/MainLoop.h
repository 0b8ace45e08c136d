#pragma once

#include <chrono>
#include <functional>

// The main thread's event loop, which the toolkit shares once it is there. Work for the main thread
// stands in a queue of ours, and the loop is only woken for it: the loop's own way of running a
// function would run it on the calling thread as long as nobody owns the loop.
namespace platform::main_loop {

// Calls `work`; a platform::Exception that it lets through is written to the console.
void callGuarded(const std::function<void()>& work);

// Any thread; see main_thread::perform. The work is called as by `callGuarded`.
void add(std::function<void()> work);
void addAndWait(std::function<void()> work);

// On the main thread: serves events until `quit`; `first` is called, guarded, before
// all queued work.
void run(std::function<void()> first);

// On the main thread: serves events once, waiting for one at most `limit`; whether there was one.
bool iterate(std::chrono::milliseconds limit);

// On the main thread: has `run` return when the event at hand has been handled. Answers false, and
// does nothing, when `run` is not what serves events now: it was never called, or an inner
// `iterate` stands above it that may not return for long.
bool quit();

// On the main thread: from now on only work is served. What else the loop has been given, which is
// the toolkit's, is never called again, not even once.
void abandonToolkit();

// On the main thread: drops queued and future work, releases threads that wait for theirs.
void close();

}  // namespace platform::main_loop
