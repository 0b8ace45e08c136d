#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

enum class End { good, bad, unknown };

// How the tools of one session have ended, which they then have.
End waitForWriter(int number) {
  const posix::FileDescriptor report(number);
  const posix::FileDescriptor life(number + 1);
  const std::optional<int> status = platform::takeReport(report);
  if (status) return *status == 0 ? End::good : End::bad;
  platform::waitForEnd(life);
  return End::unknown;
}

End waitForWriters(const Order& order) {
  End worst = End::good;
  for (int i = 0; i < order.writers; ++i) {
    worst = std::max(worst, waitForWriter(kFirstDescriptor + 2 * i));
  }
  return worst;
}

// Nothing is ever written there: the end comes when the other deferred verb has ended.
void waitForTurns(const Order& order) {
  for (int i = 0; i < order.turns; ++i) {
    platform::waitForEnd(posix::FileDescriptor(kFirstDescriptor + 2 * order.writers + i));
  }
}

// What may be in use after all is not taken from under its users.
int detachAfter(End end, Arguments command) {
  if (end == End::unknown) std::erase(command, "-force");
  return perform(command);
}

// Whoever asked for this may have ended, and with it its wish that the machine stay awake.
int carryOut(const Order& order) {
  const platform::InhibitorLock untilCarriedOut("An application is being updated.");
  const End end = waitForWriters(order);
  waitForTurns(order);
  if (order.verb.front() == platform::helper_verb::Detach::kName) {
    return detachAfter(end, order.verb);
  }
  if (end == End::good) return perform(order.verb);
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
