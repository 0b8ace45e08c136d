#include "platform/linux/processes/ChildProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "platform/linux/processes/ChildReaper.h"

namespace platform {
namespace {

// Up to this number descriptors are the standard ends.
constexpr int kStandardEnds = 3;

void check(int error, const char* what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

// Not closed, nor taken by a descriptor of our own since it was closed.
bool isInheritable(int end) {
  const int flags = ::fcntl(end, F_GETFD);
  return flags >= 0 && (flags & FD_CLOEXEC) == 0;
}

// Where the child's ends lead, and what other descriptors it has.
class FileActions {
 public:
  explicit FileActions(const ChildProgram& program) {
    check(::posix_spawn_file_actions_init(&actions_), "file actions");
    for (int target = 0; target < kStandardEnds; ++target) {
      check(lead(target, program.ends[static_cast<std::size_t>(target)]), "file actions");
    }
    keep(program.further);
  }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  const posix_spawn_file_actions_t* get() const noexcept { return &actions_; }

 private:
  // They are taken out of the way first, so that none is overwritten before it is moved itself.
  void keep(const std::vector<int>& descriptors) {
    const int end = kStandardEnds + static_cast<int>(descriptors.size());
    for (const int each : descriptors) {
      aside_.emplace_back(::fcntl(each, F_DUPFD_CLOEXEC, end));
      check(aside_.back() ? 0 : errno, "descriptors");
    }
    for (int target = kStandardEnds; target < end; ++target) {
      const int source = aside_[static_cast<std::size_t>(target - kStandardEnds)].get();
      check(::posix_spawn_file_actions_adddup2(&actions_, source, target), "file actions");
    }
    check(::posix_spawn_file_actions_addclosefrom_np(&actions_, end), "file actions");
  }

  int lead(int target, int source) {
    if (source >= 0) return ::posix_spawn_file_actions_adddup2(&actions_, source, target);
    if (source == ChildProgram::kInherited && isInheritable(target)) return 0;
    // A program started with a closed standard end would take the first file that it opens for it.
    return ::posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", O_RDWR, 0);
  }

  posix_spawn_file_actions_t actions_;
  std::vector<posix::FileDescriptor> aside_;
};

// Every signal at its default and none blocked, whatever this process does with its own.
class Attributes {
 public:
  Attributes() {
    check(::posix_spawnattr_init(&attributes_), "spawn attributes");
    sigset_t signals;
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  }
  ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  const posix_spawnattr_t* get() const noexcept { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

// The null-terminated array of texts that the system wants; it changes none of them.
std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

pid_t spawn(const ChildProgram& program) {
  const FileActions actions(program);
  const Attributes attributes;
  const std::vector<char*> arguments = pointers(program.arguments);
  std::vector<char*> environment;
  if (program.environment) environment = pointers(*program.environment);
  pid_t id = 0;
  check(::posix_spawn(&id, program.path.c_str(), actions.get(), attributes.get(), arguments.data(),
                      program.environment ? environment.data() : environ),
        "spawn");
  return id;
}

}  // namespace

ChildProcess::ChildProcess(const ChildProgram& program)
    : handle_(std::make_shared<ChildHandle>(spawn(program))) {}

ChildProcess::~ChildProcess() {
  if (!status()) collectInBackground(handle_);
}

std::optional<int> ChildProcess::status() {
  const std::lock_guard lock(mutex_);
  return statusLocked();
}

std::optional<int> ChildProcess::statusLocked() {
  if (!status_) status_ = collect(*handle_);
  return status_;
}

void ChildProcess::wait() {
  if (status()) return;
  // The child stays uncollected, so that whoever asks for its status meanwhile can have it.
  waitForEnd(*handle_);
  status();
}

void ChildProcess::terminate() {
  const std::lock_guard lock(mutex_);
  if (statusLocked()) return;
  handle_->terminationAsked = true;
  sendLocked(SIGTERM);
}

void ChildProcess::kill() {
  const std::lock_guard lock(mutex_);
  if (!statusLocked()) sendLocked(SIGKILL);
}

void ChildProcess::sendLocked(int signal) const {
  if (handle_->pidfd) {
    ::syscall(SYS_pidfd_send_signal, handle_->pidfd.get(), signal, nullptr, 0);
  } else {
    ::kill(handle_->id, signal);
  }
}

}  // namespace platform
