#pragma once

#include <utility>

#include "elevator/Messages.h"
#include "platform/linux/FileDescriptor.h"

namespace elevator {

using platform::FileDescriptor;

// One who waits for the end of some commands: each of them shares it, and when the last has let it
// go, the status that was noted last is reported.
class Observer {
 public:
  Observer(FileDescriptor report, TermStatus status)
      : report_(std::move(report)), status_(status) {}
  ~Observer();
  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;

  void note(TermStatus status) { status_ = status; }
  int pipe() const { return report_.get(); }

 private:
  FileDescriptor report_;
  TermStatus status_;
};

// Writes a status into the pipe on which it is awaited; without a reader it goes nowhere.
void report(const FileDescriptor& pipe, TermStatus status);

}  // namespace elevator
