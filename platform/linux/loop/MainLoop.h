#pragma once

#include <chrono>
#include <functional>

// The main thread's event loop. It serves two things side by side: the work that other threads send
// to the main thread, which stands in a queue of ours, and the toolkit's events, which stand in the
// default main context of GLib. (GLib's own way of running a function on the main thread would run
// it on the calling thread as long as nobody owns the context.)
//
// The toolkit can be left for good in the middle of a call, see `leaveToolkit`, so it never calls
// back into work, and work never runs inside it.
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

// On the main thread: calls into the toolkit, and answers whether the call came back. When the
// toolkit was left, in this call or earlier, the answer is false. `call` and what it calls must
// have nothing to destroy.
bool callToolkit(const std::function<void()>& call);

// On the main thread, from inside the toolkit: ends the call into the toolkit that is under way
// then and there, jumping over its frames. The toolkit is never called again and its events are no
// longer served. Does not return.
[[noreturn]] void leaveToolkit();

// Sets the function that is called once the toolkit has been left.
void setToolkitLeftHandler(void (*handler)());

}  // namespace platform::main_loop
