#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace platform {

// Runs pieces of work on as many threads as there are processors, the caller's own included. Work
// may be left to the caller to keep the queue, and so the memory and open files behind it, short.
// push and finish belong to one thread.
class CopyQueue {
 public:
  // Must not throw.
  using Work = std::function<void()>;

  CopyQueue() = default;
  // Waits for all work.
  ~CopyQueue();
  CopyQueue(const CopyQueue&) = delete;
  CopyQueue& operator=(const CopyQueue&) = delete;

  // Queues work, or runs it when the queue is full.
  void push(Work work);
  // Returns when all work is done; takes part in it.
  void finish();

 private:
  void startThread();
  void runThread();
  bool takeOne(std::unique_lock<std::mutex>& lock);

  std::mutex mutex_;
  std::condition_variable workIsThere_;
  std::condition_variable allIsDone_;
  std::deque<Work> work_;             // guarded by mutex_
  std::size_t running_ = 0;           // guarded by mutex_
  std::size_t waiting_ = 0;           // guarded by mutex_: threads that wait for work
  bool closed_ = false;               // guarded by mutex_
  std::vector<std::thread> threads_;  // the pushing thread's
};

}  // namespace platform
