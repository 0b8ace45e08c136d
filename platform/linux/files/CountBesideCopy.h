#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "platform/linux/files/CopyTotals.h"
#include "platform/linux/files/Location.h"

namespace platform {

// Counts what a copy has to do while it is already being done. Looking at a hundred thousand small
// files takes a seventh of the time of copying them, so the counting begins only when the copy has
// gone on for a while: one that is over by then is spared it.
class CountBesideCopy {
 public:
  using Clock = std::chrono::steady_clock;
  using GoOn = std::function<bool(const CopyTotals& soFar)>;
  using Counted = std::function<void(const CopyTotals& totals)>;

  // Counts the item at `source`, which must stay, from the moment `begin` on. `goOn` is as
  // countForCopy has it; `counted` is given the result unless the counting was ended before it had
  // one. Both are called by the thread that counts.
  CountBesideCopy(const Location& source, Clock::time_point begin, GoOn goOn, Counted counted);
  // When no thread copies any more: ends the counting and waits for that.
  ~CountBesideCopy();
  CountBesideCopy(const CountBesideCopy&) = delete;
  CountBesideCopy& operator=(const CountBesideCopy&) = delete;

  // For the threads that copy, as often as they like.
  void beginIfDue() {
    if (!begun_.load(std::memory_order_relaxed) && Clock::now() >= begin_) begin();
  }

 private:
  void begin();
  void count() const;

  const Location& source_;
  const Clock::time_point begin_;
  const GoOn goOn_;
  const Counted counted_;
  std::atomic<bool> begun_ = false;
  std::atomic<bool> ending_ = false;
  std::thread thread_;  // that of who began, until the end
};

}  // namespace platform
