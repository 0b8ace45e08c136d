#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Privilege.h"
#include "platform/linux/privilege/ElevatorChannel.h"
#include "platform/linux/privilege/Writers.h"
#include "platform/linux/processes/ChildProcess.h"
#include "posix/FileDescriptor.h"

namespace platform {

// A session that is a channel to the elevator.
class ElevatorSession : public privilege::Session, public writers::Session {
 public:
  // `elevatorsEnd` is what the elevator will be started with; empty when it runs already.
  ElevatorSession(posix::FileDescriptor ownEnd, posix::FileDescriptor elevatorsEnd);
  ~ElevatorSession() override;

  // Whether there is an elevator at the other end; blocks for at most `limit`.
  bool isAlive(std::chrono::milliseconds limit);

  privilege::Outcome askForRights() override;
  privilege::Outcome obtainRights(const privilege::Credentials& credentials) override;
  privilege::Execution execute(const std::string& tool, const std::vector<std::string>& arguments,
                               privilege::Output output) override;
  int runInheriting(const std::string& program, const std::vector<std::string>& arguments) override;
  void end() override;

  Observation observe(const std::string& path) override;

 private:
  ElevatorChannel::Answer run(std::vector<std::string> words, bool piped,
                              std::vector<std::string> paths);
  // A channel for a child; empty when the elevator gives none.
  posix::FileDescriptor newChannel();
  // Makes the child the one that may use the latest of them.
  void give(pid_t child);

  // Whether there is anything to observe; the lock may be held while a person thinks.
  std::atomic<bool> hasRunTools_ = false;
  // Guards everything below: a request and its reply belong together.
  std::mutex mutex_;
  ElevatorChannel channel_;
  // The paths of the latest tools that nobody waits for, one list a tool.
  std::deque<std::vector<std::string>> written_;
  // See Kind::life; asked for before the first tool.
  posix::FileDescriptor life_;
  posix::FileDescriptor elevatorsEnd_;
  // Null when the elevator was started by somebody else.
  std::unique_ptr<ChildProcess> elevator_;
};

}  // namespace platform
