#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

#include "platform/InhibitorLock.h"
#include "platform/linux/SessionHelperVerbs.h"
#include "platform/linux/privilege/ToolReport.h"
#include "platform/linux/tasks/SessionHelper.h"
#include "posix/FileDescriptor.h"
#include "sessionhelper/Verbs.h"

namespace session_helper {
namespace {

using Order = platform::helper_verb::After;

// Behind the standard ends, and the descriptor that later deferred verbs wait for.
constexpr int kFirstDescriptor = 4;
// As many as a process may have open by default.
constexpr int kMostDescriptors = 1000;

std::optional<Order> parsed(const Arguments& arguments) {
  std::optional<Order> order = platform::helper_verb::parsed<Order>(arguments);
  const bool valid = order && order->writers <= kMostDescriptors &&
                     order->turns <= kMostDescriptors && !order->verb.empty();
  return valid ? order : std::nullopt;
}

// Whether the tools, which have then all ended, succeeded.
bool waitForWriters(const Order& order) {
  bool succeeded = true;
  for (int i = 0; i < order.writers; ++i) {
    succeeded = platform::takeReport(posix::FileDescriptor(kFirstDescriptor + i)) == 0 && succeeded;
  }
  return succeeded;
}

// Nothing is ever written there: the end comes when the other deferred verb has ended.
void waitForTurns(const Order& order) {
  for (int i = 0; i < order.turns; ++i) {
    static_cast<void>(
        platform::takeReport(posix::FileDescriptor(kFirstDescriptor + order.writers + i)));
  }
}

// Whoever asked for this may have ended, and with it its wish that the machine stay awake.
int carryOut(const Order& order) {
  const platform::InhibitorLock untilCarriedOut("An application is being updated.");
  const bool written = waitForWriters(order);
  waitForTurns(order);
  if (written || order.verb.front() == platform::helper_verb::Detach::kName) {
    return perform(order.verb);
  }
  platform::session_helper::tellIncomplete(order.verb);
  return kFailure;
}

int statusOf(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return kFailure;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : kFailure;
}

}  // namespace

int after(const Arguments& arguments) {
  const std::optional<Order> order = parsed(arguments);
  if (!order) return kUsageError;
  // This program has one thread. Where there is no room for another process, this one does it.
  const pid_t child = ::fork();
  if (child > 0) return statusOf(child);
  ::setsid();
  return carryOut(*order);
}

}  // namespace session_helper
