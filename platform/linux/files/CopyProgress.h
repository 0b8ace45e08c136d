#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "platform/PropertyList.h"
#include "platform/linux/files/CopyTotals.h"

namespace platform {

// How far a copy is, counted by the threads that copy and told, as the entries of
// platform/FileOperation.h, by the one that reports.
class CopyProgress {
 public:
  // Any thread; totals never become less.
  void setTotals(const CopyTotals& totals);
  void addBytes(std::uint64_t bytes);
  void addItem();
  void setCurrentItem(std::string path);
  // When all is copied: what was copied is the total.
  void settle();

  // The reporting thread alone: the throughput is that since its last call.
  PropertyList::Dictionary status();

 private:
  using Clock = std::chrono::steady_clock;

  std::int64_t throughput(std::uint64_t bytes);

  std::atomic<std::uint64_t> bytes_ = 0;
  std::atomic<std::uint64_t> items_ = 0;
  std::mutex mutex_;  // guards the next two
  CopyTotals totals_;
  std::string currentItem_;
  // The reporting thread's.
  Clock::time_point lastTime_ = Clock::now();
  std::uint64_t lastBytes_ = 0;
};

}  // namespace platform
