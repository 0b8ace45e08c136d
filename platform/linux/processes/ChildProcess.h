#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

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

// Collects the child if it has ended and answers its exit status, or the number of the signal that
// ended it. To be called once only with an answer: the process id is then free for others.
std::optional<int> collect(const ChildHandle& child);

// What a child program is started with.
struct ChildProgram {
  std::string path;
  // The program's own name included.
  std::vector<std::string> arguments;
  // "NAME=value"; none inherits ours.
  std::optional<std::vector<std::string>> environment;

  // Where standard input, output and error lead: a descriptor of ours above 2, or one of these.
  static constexpr int kInherited = -1;
  static constexpr int kNullDevice = -2;
  std::array<int, 3> ends = {kInherited, kInherited, kInherited};
  // Descriptors of ours that become the child's third, fourth and so on; it has no others.
  std::vector<int> further = {};
};

// A running or ended child. Thread-safe. When it is destroyed while the child runs, the child goes
// on and is collected in the background.
class ChildProcess {
 public:
  // The status of a child whose status the system did not keep: SIGCHLD was ignored.
  static constexpr int kLostStatus = 255;

  // Starts a program. Throws std::system_error.
  explicit ChildProcess(const ChildProgram& program);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  const std::shared_ptr<ChildHandle>& handle() const noexcept { return handle_; }

  // None while the child runs, then its exit status or the number of the signal that ended it.
  std::optional<int> status();
  // Blocks until the child has ended.
  void wait();
  // SIGTERM, unless it has ended.
  void terminate();

 private:
  std::optional<int> statusLocked();

  const std::shared_ptr<ChildHandle> handle_;
  // Guards status_ and with it whether the process id is still the child's.
  std::mutex mutex_;
  std::optional<int> status_;
};

}  // namespace platform
