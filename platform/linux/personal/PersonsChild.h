#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/linux/personal/Operations.h"
#include "platform/linux/processes/ChildProcess.h"
#include "posix/FileDescriptor.h"

namespace platform::personal {

// The superuser's child program that has become one person and does there what it is asked for. It
// is a process and not a thread, because a file system that has taken a question and does not
// answer keeps whoever asked from ending, even from being killed. Thread-safe: one question at a
// time.
class PersonsChild {
 public:
  // What all questions to one person's child may take together.
  static constexpr std::chrono::milliseconds kPatience{8000};

  // The one child for the person with this user id; started at the first question.
  static PersonsChild& of(std::uint32_t user);

  explicit PersonsChild(std::uint32_t user) : user_(user) {}

  // The answer; a failure as of a missing item when the child cannot be started, has gone or has
  // taken too long, now or before.
  Texts ask(const Texts& request);
  // Has the child make a folder, if missing, and open it as a place (O_PATH). -1 unless the folder
  // is the person's own.
  posix::FileDescriptor openFolder(const std::string& folder);

 private:
  using Deadline = std::chrono::steady_clock::time_point;

  std::optional<Texts> exchange(const Texts& request);
  bool start();
  void giveUp();

  const std::uint32_t user_;
  std::mutex mutex_;  // guards the rest
  std::chrono::nanoseconds patience_ = kPatience;
  std::unique_ptr<ChildProcess> child_;
  posix::FileDescriptor socket_;
};

}  // namespace platform::personal
