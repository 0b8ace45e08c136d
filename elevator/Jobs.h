#pragma once

#include <sys/types.h>

#include <deque>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "elevator/Observer.h"
#include "elevator/Spawn.h"
#include "elevator/Tool.h"
#include "posix/FileDescriptor.h"

namespace elevator {

// A command that was accepted.
struct Job {
  std::vector<std::string> words;
  Tool tool;
  ToolEnds ends;
  // Where the end is reported; nowhere when empty.
  posix::FileDescriptor report;
  // Who waits for it; each reports when nothing holds it any more.
  std::vector<std::shared_ptr<Observer>> observers;

  std::vector<std::string> paths;
  // Earlier jobs that name overlapping paths and have not ended.
  std::size_t blockers = 0;
  // Once it runs; readable when it has ended (pidfd_open(2)).
  posix::FileDescriptor process;
};

// The commands that have not ended, in the order in which they came. One that names a path of an
// earlier one starts after that has ended; the others run beside each other, up to a limit.
class Jobs {
 public:
  static constexpr std::size_t kMostRunning = 16;
  static constexpr std::size_t kMostWaiting = 12000;
  static constexpr std::size_t kMostWaitingBytes = 32U << 20;
  // How many that have ended are remembered for observers who come later.
  static constexpr std::size_t kMostRemembered = 64;
  static constexpr std::size_t kMostObservers = 1024;

  bool hasRoomFor(const Job& job) const;
  // Takes a job and starts it now if it may start; answers 0 or why it could not be started.
  int add(Job job);
  // Reports the end of the job whose process descriptor this is, and starts what waited for it.
  void finish(int process);
  // Reports on `report` how the last of the jobs of now that name an overlapping path ended, once
  // they all have. Those whose end is reported to their asker are waited for but do not count.
  // Answers 0, or EAGAIN when too many wait already.
  int observe(const std::string& path, posix::FileDescriptor report);

  bool hasWaiting() const { return running_ < jobs_.size(); }
  // The process descriptors of the jobs that run.
  std::vector<int> running() const;
  // The pipes' ends that somebody may still be reading to learn of an end, each once.
  std::vector<int> reports() const;

 private:
  using Place = std::list<Job>::iterator;
  struct Ended {
    std::vector<std::string> paths;
    channel::TermStatus status;
  };

  static std::size_t bytesOf(const Job& job);
  int start(Job& job);
  void startWhatMay();
  void remove(Place job, channel::TermStatus status);
  // Keeps in mind how it ended, and tells those who wait.
  void remember(const Job& job, channel::TermStatus status);

  std::list<Job> jobs_;
  std::deque<Ended> ended_;
  // The jobs own them, many jobs the same one.
  std::vector<std::weak_ptr<Observer>> observers_;
  std::size_t running_ = 0;
  std::size_t waitingBytes_ = 0;
};

}  // namespace elevator
