#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace platform {

// Pieces of work that any thread hands to one thread, which runs them in order.
class WorkQueue {
 public:
  using Work = std::function<void()>;

  // `wake` is called, on the adding thread and outside the lock, whenever work was added to an
  // empty queue.
  explicit WorkQueue(void (*wake)()) : wake_(wake) {}
  WorkQueue(const WorkQueue&) = delete;
  WorkQueue& operator=(const WorkQueue&) = delete;

  // Any thread. After `close` the work is dropped.
  void add(Work work);
  // As `add`, but before everything that is queued.
  void addFirst(Work work);
  // As `add`, and blocks until the work has run or the queue is closed. Not on the serving thread.
  void addAndWait(Work work);
  bool empty();
  bool isClosed();

  // On the serving thread: runs the first piece of work and answers whether there was one. May be
  // called by work.
  bool runFirst();

  // Drops what is queued and releases every waiting thread, also one whose work is running now.
  // Called again it does nothing.
  void close();

 private:
  struct Job {
    Work work;
    bool done = false;  // guarded by mutex_
  };
  using JobPointer = std::shared_ptr<Job>;
  enum class End { front, back };

  void insert(JobPointer job, End end);
  JobPointer takeFirst();

  void (*const wake_)();
  std::mutex mutex_;  // guards everything below
  std::condition_variable progress_;
  std::deque<JobPointer> jobs_;
  bool closed_ = false;
};

}  // namespace platform
