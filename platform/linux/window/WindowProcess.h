#pragma once

#include <cstdint>
#include <deque>
#include <memory>

#include "platform/linux/processes/ChildProcess.h"
#include "platform/linux/window/LifeSigns.h"
#include "posix/FileDescriptor.h"
#include "window/Messages.h"

namespace platform {

// The window program as a child of this process, which maps no toolkit and never waits for one.
// What the program answers is not trusted: it belongs to the person and to whatever that person's
// display makes of it. Main thread only.
class WindowProcess {
 public:
  // Who is told of alerts. Both are called by the main loop, or inside `send`.
  struct AlertListener {
    // The person has dismissed an alert. Answers false when there is no such alert.
    bool (*dismissed)(std::uint32_t number);
    // No alert that was sent can be dismissed any more.
    void (*lost)();
  };

  // The one of this process, never destroyed.
  static WindowProcess& shared();

  WindowProcess();
  WindowProcess(const WindowProcess&) = delete;
  WindowProcess& operator=(const WindowProcess&) = delete;

  // Sends a request and returns at once; the first one starts the program. False when nothing can
  // be shown, now or ever, of which the console was told once.
  bool send(const window::Request& request);
  void setAlertListener(const AlertListener& listener) { alertListener_ = listener; }

 private:
  enum class State { notStarted, starting, open, gone };

  void start();
  void flush();
  void serve();
  bool take(const window::Answer& answer);
  bool takeDismissed(std::uint32_t number);
  const char* lossOfChild() const;
  // Goes on without the program, having said why on the console.
  void lose(const char* line);

  State state_ = State::notStarted;
  std::unique_ptr<ChildProcess> child_;
  posix::FileDescriptor socket_;
  // What the socket has not taken yet.
  std::deque<window::Request> waiting_;
  AlertListener alertListener_ = {};
  int shownAlerts_ = 0;
  LifeSigns lifeSigns_;
};

}  // namespace platform
