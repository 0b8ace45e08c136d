#include "platform/linux/files/CopyProgress.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/FileOperation.h"

namespace platform {
namespace {

// Sparse files may come to more than there are numbers for.
std::int64_t asInteger(std::uint64_t number) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(std::min(number, kMost));
}

}  // namespace

void CopyProgress::setTotals(const CopyTotals& totals) {
  const std::lock_guard lock(mutex_);
  totals_ = totals;
}

void CopyProgress::addBytes(std::uint64_t bytes) {
  bytes_.fetch_add(bytes, std::memory_order_relaxed);
}

void CopyProgress::addItem() {
  items_.fetch_add(1, std::memory_order_relaxed);
}

void CopyProgress::setCurrentItem(std::string path) {
  const std::lock_guard lock(mutex_);
  currentItem_ = std::move(path);
}

void CopyProgress::settle() {
  setTotals({.items = items_, .bytes = bytes_});
}

PropertyList::Dictionary CopyProgress::status() {
  const std::uint64_t bytes = bytes_;
  const std::uint64_t items = items_;
  const std::lock_guard lock(mutex_);
  const std::uint64_t totalBytes = std::max(totals_.bytes, bytes);
  const std::uint64_t totalItems = std::max(totals_.items, items);
  return {{FileOperation::kTotalBytes, asInteger(totalBytes)},
          {FileOperation::kBytesComplete, asInteger(bytes)},
          {FileOperation::kBytesRemaining, asInteger(totalBytes - bytes)},
          {FileOperation::kTotalObjects, asInteger(totalItems)},
          {FileOperation::kObjectsComplete, asInteger(items)},
          {FileOperation::kObjectsRemaining, asInteger(totalItems - items)},
          {FileOperation::kThroughput, throughput(bytes)},
          {FileOperation::kCurrentItem, currentItem_}};
}

std::int64_t CopyProgress::throughput(std::uint64_t bytes) {
  const auto now = Clock::now();
  const double seconds = std::chrono::duration<double>(now - lastTime_).count();
  const auto gained = static_cast<double>(bytes - lastBytes_);
  lastTime_ = now;
  lastBytes_ = bytes;
  constexpr double kMost = 1e18;
  return seconds > 0 ? static_cast<std::int64_t>(std::min(gained / seconds, kMost)) : 0;
}

}  // namespace platform
