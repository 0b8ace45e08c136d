#include "Shared/LogQueue.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/DetachedThread.h"
#include "platform/Exception.h"

namespace {

// Memory that one rush has left behind is given back above this.
constexpr std::size_t kKeptBytes = 1 << 20;

}  // namespace

void LogBatch::add(std::string_view text, std::size_t units) {
  bytes_ += text;
  entries_.push_back({bytes_.size(), units});
}

std::string_view LogBatch::text(std::size_t index) const {
  const std::size_t begin = index == 0 ? 0 : entries_[index - 1].end;
  return std::string_view(bytes_).substr(begin, entries_[index].end - begin);
}

void LogBatch::clear() {
  bytes_.clear();
  entries_.clear();
  if (bytes_.capacity() + entries_.capacity() * sizeof(Entry) <= kKeptBytes) return;
  bytes_.shrink_to_fit();
  entries_.shrink_to_fit();
}

// What the queue and its worker share; it outlives whichever ends first.
class LogQueue::State {
 public:
  explicit State(Worker worker) : worker_(std::move(worker)) {}

  // Answers whether a worker must be started.
  [[nodiscard]] bool add(std::string_view text, std::size_t units) {
    std::unique_lock lock(mutex_);
    pending_.add(text, units);
    ++added_;
    if (workerThread_ == std::this_thread::get_id()) addedByWorker_ = added_;
    const bool mustStart = !std::exchange(hasWorker_, true);
    const bool mustWake = std::exchange(workerSleeps_, false);
    lock.unlock();
    if (mustWake) wake_.notify_one();
    return mustStart;
  }

  void noteNoWorker() {
    const std::lock_guard lock(mutex_);
    hasWorker_ = false;
    progress_.notify_all();
  }

  void close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    wake_.notify_one();
  }

  std::size_t unfinished() {
    const std::lock_guard lock(mutex_);
    return added_ - finished_;
  }

  void waitUntilFinished() {
    std::unique_lock lock(mutex_);
    if (workerThread_ == std::this_thread::get_id()) return;
    waitFor(lock, added_);
    waitFor(lock, addedByWorker_);
  }

  void run() {
    LogBatch batch;
    while (takeAll(batch)) {
      for (std::size_t first = 0; first < batch.size();) {
        const std::size_t count = worker_(batch, first);
        first += count;
        noteFinished(count);
      }
      batch.clear();
    }
  }

 private:
  // Waits for texts and swaps them into the empty `batch`; false when there will be no more.
  bool takeAll(LogBatch& batch) {
    std::unique_lock lock(mutex_);
    workerThread_ = std::this_thread::get_id();
    while (pending_.empty() && !closed_) {
      workerSleeps_ = true;
      wake_.wait(lock);
    }
    workerSleeps_ = false;
    std::swap(batch, pending_);
    return !batch.empty();
  }

  void noteFinished(std::size_t count) {
    const std::lock_guard lock(mutex_);
    finished_ += count;
    if (waiting_ > 0) progress_.notify_all();
  }

  void waitFor(std::unique_lock<std::mutex>& lock, std::size_t operations) {
    ++waiting_;
    progress_.wait(lock, [&] { return finished_ >= operations || !hasWorker_; });
    --waiting_;
  }

  const Worker worker_;

  std::mutex mutex_;  // guards everything below
  std::condition_variable wake_;
  std::condition_variable progress_;
  LogBatch pending_;
  // Operations since the queue was made. `addedByWorker_`: up to the last that the worker added.
  std::size_t added_ = 0;
  std::size_t addedByWorker_ = 0;
  std::size_t finished_ = 0;
  unsigned waiting_ = 0;
  bool hasWorker_ = false;
  bool workerSleeps_ = false;
  bool closed_ = false;
  std::thread::id workerThread_;
};

LogQueue::LogQueue(Worker worker) : state_(std::make_shared<State>(std::move(worker))) {}

LogQueue::~LogQueue() {
  state_->close();
}

void LogQueue::addOperation(std::string_view text, std::size_t units) {
  if (!state_->add(text, units)) return;
  try {
    platform::detachThread([state = state_] { state->run(); });
  } catch (const platform::Exception&) {
    state_->noteNoWorker();
  }
}

std::size_t LogQueue::operationCount() const {
  return state_->unfinished();
}

void LogQueue::waitUntilAllOperationsAreFinished() const {
  state_->waitUntilFinished();
}
