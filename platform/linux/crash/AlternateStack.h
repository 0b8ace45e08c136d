#pragma once

#include <cstddef>

namespace platform::crash {

// A stack on which signals are handled in the thread that makes it, as long as it lives: a thread
// that has used up its own can still tell. A thread that has one already keeps that; where there is
// no memory for one, the thread goes without.
class AlternateStack {
 public:
  AlternateStack() noexcept;
  ~AlternateStack();
  AlternateStack(const AlternateStack&) = delete;
  AlternateStack& operator=(const AlternateStack&) = delete;

 private:
  void* memory_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace platform::crash
