#pragma once

#include <functional>

namespace platform {

// What the application is told of its own life.
class ApplicationDelegate {
 public:
  virtual ~ApplicationDelegate() = default;
  // On the main thread, once, as soon as the main loop runs. A platform::Exception that it lets
  // through is written to the console and the loop goes on; any other ends the process.
  virtual void applicationDidFinishLaunching() = 0;
};

// The process as an application: its arguments, main loop and termination.
namespace application {

// Owns the main thread until the application terminates: takes the arguments for the user defaults
// (see UserDefaults.h), runs the main loop and tells the delegate. Neither a broken standard output
// nor a limit on the size of files kills the process, the write fails (SIGPIPE and SIGXFSZ are
// ignored from here on; child programs start with the defaults), and the status of child programs
// is kept (SIGCHLD is at its default). Answers the process's exit status, which is 0 for every
// ordinary end. Call once, from `main`.
int run(int argc, const char* const* argv, ApplicationDelegate& delegate);

// Ends the application, after the work that was sent to the main thread before: the main loop ends,
// threads that wait for the main thread are released, termination observers run on the main thread
// in the order in which they were added, the process exits with status 0. On the main thread itself
// all this happens at once. Does not return, on whatever thread it is called; no other thread is
// joined.
[[noreturn]] void terminate();

// For work that must not stop halfway: from here on a session that ends, a terminal that closes or
// a request to end (SIGHUP, SIGINT, SIGTERM) does not end the process; `terminate` does. Child
// programs start with the defaults. Any thread.
void ignoreTerminationRequests();

// Takes that back until it is called again: for a time in which nothing is under way. Any thread.
void heedTerminationRequests();

using ObserverId = unsigned;

// Has `observer` called on the main thread when the application terminates. An observer may wait
// for other threads. A platform::Exception that it lets through is written to the console and the
// next observer runs; any other ends the process. Thread-safe.
ObserverId addTerminationObserver(std::function<void()> observer);

// Takes an observer back; an unknown id does nothing. Thread-safe; may be called by an observer.
void removeTerminationObserver(ObserverId id);

}  // namespace application
}  // namespace platform
