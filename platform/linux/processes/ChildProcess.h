#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/processes/ChildHandle.h"

namespace platform {

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
  // SIGKILL likewise, which ends a stopped child, too.
  void kill();

 private:
  std::optional<int> statusLocked();
  void sendLocked(int signal) const;

  const std::shared_ptr<ChildHandle> handle_;
  // Guards status_ and with it whether the process id is still the child's.
  std::mutex mutex_;
  std::optional<int> status_;
};

}  // namespace platform
