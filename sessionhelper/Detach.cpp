#include <syslog.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "platform/linux/Allocated.h"
#include "posix/Escaped.h"
#include "sessionhelper/LoopDevice.h"
#include "sessionhelper/MountTable.h"
#include "sessionhelper/Unmount.h"
#include "sessionhelper/Verbs.h"

namespace session_helper {
namespace {

constexpr std::chrono::milliseconds kRetryInterval(100);
// Who waits for a detachment waits for five seconds.
constexpr std::chrono::seconds kBusyLimit(4);

struct Order {
  std::string path;
  bool force = false;
};

void say(const std::string& words) {
  std::fprintf(stderr, "session-helper: detach: %s\n", words.c_str());
  // Who started this may have nobody's ear.
  syslog(LOG_WARNING, "session-helper: detach: %s", posix::escaped(words).c_str());
}

std::optional<Order> parsed(const Arguments& arguments) {
  Order order;
  bool hasPath = false;
  for (const std::string& argument : arguments) {
    if (argument == "-force" && !order.force) {
      order.force = true;
    } else if (!hasPath && !argument.starts_with('-')) {
      order.path = argument;
      hasPath = true;
    } else {
      say("unexpected argument \"" + argument + "\"");
      return std::nullopt;
    }
  }
  if (order.path.starts_with('/')) return order;
  say("the mount point must be an absolute path, not \"" + order.path + "\"");
  return std::nullopt;
}

std::optional<std::string> realPath(const std::string& path) {
  const platform::Allocated<char> real(::realpath(path.c_str(), nullptr));
  if (real == nullptr) return std::nullopt;
  return real.get();
}

// The path without links in its folders; its last component stays as it is, so that a link there is
// not followed. "/" for the root however it is written.
std::optional<std::string> resolved(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  const std::size_t slash = path.rfind('/');
  const std::string name = path.substr(slash + 1);
  if (name == "." || name == "..") return std::nullopt;
  const std::optional<std::string> folder = realPath(path.substr(0, slash + 1));
  if (!folder) return std::nullopt;
  return *folder == "/" ? "/" + name : *folder + "/" + name;
}

bool isMounted(const std::string& path) {
  std::ifstream mountInfo("/proc/self/mountinfo");
  return isMountPoint(path, mountInfo);
}

int unmountWhileMounted(const std::string& mountPoint, bool force) {
  const auto end = std::chrono::steady_clock::now() + kBusyLimit;
  for (;;) {
    const bool late = force && std::chrono::steady_clock::now() >= end;
    const UnmountResult result = unmount(mountPoint, late ? Manner::lazy : Manner::ordinary);
    // Somebody else may have been faster.
    if (result.done || !isMounted(mountPoint)) return 0;
    if (!result.busy || !force || late) {
      say(result.message);
      return kFailure;
    }
    std::this_thread::sleep_for(kRetryInterval);
  }
}

}  // namespace

int detach(const Arguments& arguments) {
  const std::optional<Order> order = parsed(arguments);
  if (!order) return kUsageError;
  const std::optional<std::string> mountPoint = resolved(order->path);
  if (!mountPoint || *mountPoint == "/" || !isMounted(*mountPoint)) {
    say("\"" + order->path + "\" is not a mount point that can be detached");
    return kFailure;
  }
  const std::optional<std::string> loopDevice = lastingLoopDeviceAt(*mountPoint);
  const int result = unmountWhileMounted(*mountPoint, order->force);
  // The image is detached for whoever looks for its files, even if its device may not be freed.
  if (result == 0 && loopDevice) deleteLoopDevice(*loopDevice);
  return result;
}

}  // namespace session_helper
