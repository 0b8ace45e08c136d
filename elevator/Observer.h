#pragma once

#include <utility>

#include "channel/Messages.h"
#include "posix/FileDescriptor.h"

namespace elevator {

// One who waits for the end of some commands: each of them shares it, and when the last has let it
// go, the status that was noted last is reported.
class Observer {
 public:
  Observer(posix::FileDescriptor report, channel::TermStatus status)
      : report_(std::move(report)), status_(status) {}
  ~Observer();
  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;

  void note(channel::TermStatus status) { status_ = status; }
  int pipe() const { return report_.get(); }

 private:
  posix::FileDescriptor report_;
  channel::TermStatus status_;
};

// Writes a status into the pipe on which it is awaited; without a reader it goes nowhere.
void report(const posix::FileDescriptor& pipe, channel::TermStatus status);

}  // namespace elevator
