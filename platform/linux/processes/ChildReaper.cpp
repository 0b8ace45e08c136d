#include "platform/linux/processes/ChildReaper.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/NoDestructor.h"
#include "platform/linux/processes/SignalMaskedThread.h"

namespace platform {
namespace {

// How often a child is looked at that no descriptor tells of, in milliseconds.
constexpr int kLookInterval = 100;

class Reaper {
 public:
  void add(std::shared_ptr<ChildHandle> child) {
    const std::lock_guard lock(mutex_);
    children_.push_back(std::move(child));
    if (!working_) {
      start();
    } else if (wake_) {
      ::eventfd_write(wake_.get(), 1);
    }
  }

 private:
  // Without a thread now, the next child's tries again.
  void start() {
    wake_ = posix::FileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    std::thread thread = startSignalMaskedThread([this] { work(); });
    working_ = thread.joinable();
    if (working_) thread.detach();
  }

  void work() {
    for (;;) {
      const std::vector<std::shared_ptr<ChildHandle>> watched = collectEnded();
      if (watched.empty()) return;
      waitForAny(watched);
    }
  }

  // Answers those that still run; with none the work has ended, and nothing of it stays.
  std::vector<std::shared_ptr<ChildHandle>> collectEnded() {
    const std::lock_guard lock(mutex_);
    std::erase_if(children_, [](const auto& child) { return collect(*child).has_value(); });
    working_ = !children_.empty();
    if (!working_) wake_.reset();
    return children_;
  }

  void waitForAny(const std::vector<std::shared_ptr<ChildHandle>>& watched) const {
    std::vector<pollfd> descriptors = {{wake_.get(), POLLIN, 0}};
    bool silent = !wake_;
    for (const auto& child : watched) {
      descriptors.push_back({child->pidfd.get(), POLLIN, 0});
      silent = silent || !child->pidfd;
    }
    ::poll(descriptors.data(), descriptors.size(), silent ? kLookInterval : -1);
    eventfd_t count = 0;
    if (wake_) ::eventfd_read(wake_.get(), &count);
  }

  // Guards everything; the working thread alone uses wake_ without it, as nobody else changes that
  // while there is one.
  std::mutex mutex_;
  std::vector<std::shared_ptr<ChildHandle>> children_;
  bool working_ = false;
  posix::FileDescriptor wake_;
};

}  // namespace

void collectInBackground(std::shared_ptr<ChildHandle> child) {
  static NoDestructor<Reaper> reaper;
  reaper->add(std::move(child));
}

}  // namespace platform
