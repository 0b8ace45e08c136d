#include "platform/linux/loop/WorkQueue.h"

#include <utility>

namespace platform {

void WorkQueue::add(Work work) {
  insert(std::make_shared<Job>(Job{std::move(work)}), End::back);
}

void WorkQueue::addFirst(Work work) {
  insert(std::make_shared<Job>(Job{std::move(work)}), End::front);
}

void WorkQueue::addAndWait(Work work) {
  // Shared with the queue: a caller released by `close` may be gone before its work returns.
  const auto job = std::make_shared<Job>(Job{std::move(work)});
  insert(job, End::back);
  std::unique_lock lock(mutex_);
  progress_.wait(lock, [&] { return job->done || closed_; });
}

bool WorkQueue::empty() {
  const std::lock_guard lock(mutex_);
  return jobs_.empty();
}

bool WorkQueue::isClosed() {
  const std::lock_guard lock(mutex_);
  return closed_;
}

bool WorkQueue::runFirst() {
  const JobPointer job = takeFirst();
  if (!job) return false;
  job->work();
  job->work = nullptr;  // what it captured goes on this thread, before the caller continues
  {
    const std::lock_guard lock(mutex_);
    job->done = true;
  }
  progress_.notify_all();
  return true;
}

void WorkQueue::close() {
  std::deque<JobPointer> dropped;
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    dropped.swap(jobs_);
  }
  progress_.notify_all();
}

void WorkQueue::insert(JobPointer job, End end) {
  {
    const std::lock_guard lock(mutex_);
    if (closed_) return;
    jobs_.insert(end == End::front ? jobs_.begin() : jobs_.end(), std::move(job));
    if (jobs_.size() > 1) return;
  }
  wake_();
}

WorkQueue::JobPointer WorkQueue::takeFirst() {
  const std::lock_guard lock(mutex_);
  if (jobs_.empty()) return nullptr;
  JobPointer job = std::move(jobs_.front());
  jobs_.pop_front();
  return job;
}

}  // namespace platform
