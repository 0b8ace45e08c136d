#pragma once

#include <functional>

#include "posix/FileDescriptor.h"

namespace platform {

// Asks somebody every two seconds for a sign of life, and tells when none has come for ten. Main
// thread only. Time during which the machine sleeps does not count, nor does it count that this
// process was stopped.
class LifeSigns {
 public:
  // `ask` is to ask for one sign. `miss` may end this.
  LifeSigns(std::function<void()> ask, std::function<void()> miss);
  ~LifeSigns() { end(); }
  LifeSigns(const LifeSigns&) = delete;
  LifeSigns& operator=(const LifeSigns&) = delete;

  // Asks from now on, at once for the first time. Does nothing when it asks already.
  void begin();
  // Asks no more. The sign that it asked for last may still come.
  void end();
  // For a sign that has come. Answers whether it was asked for.
  bool take();

 private:
  void ask();
  void passPeriod();

  const std::function<void()> ask_;
  const std::function<void()> miss_;
  posix::FileDescriptor timer_;
  bool asked_ = false;
  int silentPeriods_ = 0;
};

}  // namespace platform
