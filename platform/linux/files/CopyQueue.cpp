#include "platform/linux/files/CopyQueue.h"

#include <algorithm>
#include <utility>

#include "platform/linux/processes/SignalMaskedThread.h"

namespace platform {
namespace {

constexpr std::size_t kMaxQueued = 48;
// Beyond this, disks and folders are what everything waits for.
constexpr unsigned kMaxThreads = 8;

std::size_t helperThreads() {
  static const unsigned processors =
      std::clamp(std::thread::hardware_concurrency(), 1U, kMaxThreads);
  return processors - 1;
}

}  // namespace

CopyQueue::~CopyQueue() {
  finish();
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  workIsThere_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void CopyQueue::push(Work work) {
  std::unique_lock lock(mutex_);
  const bool backlog = !work_.empty();
  if (work_.size() >= kMaxQueued || helperThreads() == 0) {
    lock.unlock();
    work();
    return;
  }
  work_.push_back(std::move(work));
  const bool wake = waiting_ > 0;
  lock.unlock();
  if (wake) {
    workIsThere_.notify_one();
  } else if (backlog && threads_.size() < helperThreads()) {
    startThread();
  }
}

void CopyQueue::finish() {
  std::unique_lock lock(mutex_);
  while (takeOne(lock)) {
  }
  allIsDone_.wait(lock, [this] { return running_ == 0; });
}

// Without a further thread the work is done by those there are.
void CopyQueue::startThread() {
  std::thread thread = startSignalMaskedThread([this] { runThread(); });
  if (thread.joinable()) threads_.push_back(std::move(thread));
}

void CopyQueue::runThread() {
  std::unique_lock lock(mutex_);
  while (!closed_) {
    if (takeOne(lock)) continue;
    ++waiting_;
    workIsThere_.wait(lock, [this] { return closed_ || !work_.empty(); });
    --waiting_;
  }
}

bool CopyQueue::takeOne(std::unique_lock<std::mutex>& lock) {
  if (work_.empty()) return false;
  Work work = std::move(work_.front());
  work_.pop_front();
  ++running_;
  lock.unlock();
  work();
  work = nullptr;
  lock.lock();
  if (--running_ == 0 && work_.empty()) allIsDone_.notify_all();
  return true;
}

}  // namespace platform
