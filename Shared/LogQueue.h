#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Texts in the order in which they were queued, in one piece of memory.
class LogBatch {
 public:
  // `units` is the text's length in UTF-16 code units.
  void add(std::string_view text, std::size_t units);

  std::size_t size() const noexcept { return entries_.size(); }
  bool empty() const noexcept { return entries_.empty(); }
  std::string_view text(std::size_t index) const;
  std::size_t units(std::size_t index) const { return entries_[index].units; }
  void clear();

 private:
  struct Entry {
    std::size_t end;
    std::size_t units;
  };

  std::string bytes_;
  std::vector<Entry> entries_;
};

// The serial queue of the log's writes: every text that is added is one operation, and one worker
// thread carries them out in the order in which they were added. The worker takes everything that
// has gathered meanwhile at once, so a text costs the caller no more than a copy. The worker starts
// with the first text; when the queue is let go of, it finishes what is left and ends. Thread-safe.
class LogQueue {
 public:
  // Carries out operations of a batch, at least the one at index `first` and any number of those
  // that follow it, and answers how many. Called by the worker only; must not throw.
  using Worker = std::function<std::size_t(const LogBatch& batch, std::size_t first)>;

  explicit LogQueue(Worker worker);
  ~LogQueue();
  LogQueue(const LogQueue&) = delete;
  LogQueue& operator=(const LogQueue&) = delete;

  // Never waits for an operation.
  void addOperation(std::string_view text, std::size_t units);

  // Operations that have not finished, the one under way included.
  std::size_t operationCount() const;

  // Blocks until every operation that was added before the call has finished, and what those have
  // added themselves; what others add meanwhile is not waited for. On the worker's own thread it
  // returns at once, as the operation under way could never finish; so it does while the system
  // refuses the queue a thread, which every further text asks for again.
  void waitUntilAllOperationsAreFinished() const;

 private:
  class State;
  std::shared_ptr<State> state_;
};
