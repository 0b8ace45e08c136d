#include "platform/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <thread>
#include <utility>

#include "posix/FileDescriptor.h"

namespace platform {
namespace {

using namespace std::chrono_literals;

constexpr auto kBetweenAttempts = 2ms;

class DescriptorLock : public FolderLock {
 public:
  explicit DescriptorLock(posix::FileDescriptor folder) : folder_(std::move(folder)) {}

 private:
  posix::FileDescriptor folder_;
};

// flock(2) cannot wait with a limit.
bool lockWithin(int descriptor, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kBetweenAttempts);
  }
  return true;
}

}  // namespace

// static
std::unique_ptr<FolderLock> FolderLock::acquire(const std::string& folder,
                                                std::chrono::milliseconds limit) {
  posix::FileDescriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor || !lockWithin(descriptor.get(), limit)) return nullptr;
  return std::make_unique<DescriptorLock>(std::move(descriptor));
}

}  // namespace platform
