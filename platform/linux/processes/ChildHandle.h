#pragma once

#include <sys/types.h>

#include <atomic>
#include <optional>

#include "posix/FileDescriptor.h"

namespace platform {

// A child process of ours, as everybody who has to do with it sees it.
struct ChildHandle {
  explicit ChildHandle(pid_t process);

  const pid_t id;
  // pidfd_open(2); none when this process has no descriptor left.
  const posix::FileDescriptor pidfd;
  // Whether the child was asked to end while it ran.
  std::atomic<bool> terminationAsked = false;
};

// What a child's status is when the system did not keep it: SIGCHLD was ignored.
inline constexpr int kLostStatus = 255;

// Collects the child if it has ended and answers its exit status, or the number of the signal that
// ended it. To be called once only with an answer: the process id is then free for others.
std::optional<int> collect(const ChildHandle& child);

// Blocks until the child has ended; it stays to be collected.
void waitForEnd(const ChildHandle& child);

}  // namespace platform
