#include "platform/linux/privilege/ElevatorStart.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "platform/Bundle.h"
#include "platform/linux/privilege/PolkitPresence.h"

namespace platform {
namespace {

using privilege::Outcome;
using Clock = std::chrono::steady_clock;

constexpr char kPkexec[] = "/usr/bin/pkexec";
constexpr std::chrono::seconds kPresenceLimit(5);
// What pkexec(1) exits with when the person dismissed the dialog.
constexpr int kDismissed = 126;

// What pkexec needs of the world: programs, and the language of the dialog.
std::vector<std::string> environment() {
  std::vector<std::string> result = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
  if (const char* language = std::getenv("LANG"); language != nullptr) {
    result.push_back(std::string("LANG=") + language);
  }
  return result;
}

bool isInstalled() {
  return ::access(QV_ELEVATOR_PATH, F_OK) == 0;
}

// For the superuser, who needs nobody's leave, the one that stands beside this program will do.
std::string superusersElevator() {
  if (isInstalled()) return QV_ELEVATOR_PATH;
  return Bundle::main().auxiliaryPath("qv-elevator").value_or(std::string());
}

ChildProgram program(const posix::FileDescriptor& channel) {
  ChildProgram result;
  if (::getuid() == 0) {
    result.path = superusersElevator();
    result.arguments = {result.path};
  } else {
    result.path = kPkexec;
    // The internal agent would ask at a terminal behind the person's back.
    result.arguments = {kPkexec, "--disable-internal-agent", QV_ELEVATOR_PATH};
  }
  result.environment = environment();
  result.ends = {channel.get(), ChildProgram::kNullDevice, ChildProgram::kNullDevice};
  return result;
}

enum class News { fromElevator, agentGone, none };

// Waits for the elevator's first packet or the end of the channel.
News waitForNews(const ElevatorChannel& channel, const posix::FileDescriptor& agent,
                 Clock::time_point end) {
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    std::array<pollfd, 2> entries = {pollfd{channel.socket(), POLLIN, 0},
                                     pollfd{agent.get(), POLLIN, 0}};
    const int found =
        ::poll(entries.data(), entries.size(), static_cast<int>(std::max<std::int64_t>(left, 0)));
    if (found < 0 && errno == EINTR) continue;
    if (found <= 0) return News::none;
    return entries[0].revents != 0 ? News::fromElevator : News::agentGone;
  }
}

// Why pkexec ended without starting the elevator.
Outcome outcomeOf(ChildProcess& pkexec) {
  pkexec.wait();
  return pkexec.status() == kDismissed ? Outcome::cancelled : Outcome::refused;
}

bool isHello(ElevatorChannel& channel, const ChildProcess& child) {
  const auto answer = channel.takeAnswer(0, std::chrono::milliseconds(0));
  // pkexec becomes the program that it starts, so the process is the same.
  return answer.status == 0 && answer.sender == child.handle()->id;
}

}  // namespace

bool canStartElevator() {
  if (::getuid() == 0) return !superusersElevator().empty();
  // Once asked, pkexec waits for an answer as long as it takes: not even asked is a service that
  // does not answer anything.
  return isInstalled() && polkitAnswers(kPresenceLimit);
}

Outcome startElevator(ElevatorChannel& channel, posix::FileDescriptor elevatorsEnd,
                      const posix::FileDescriptor& agent, std::chrono::milliseconds limit,
                      std::unique_ptr<ChildProcess>& elevator) {
  const auto end = Clock::now() + limit;
  if (!channel.sendHello()) return Outcome::unavailable;
  try {
    elevator = std::make_unique<ChildProcess>(program(elevatorsEnd));
  } catch (const std::system_error&) {
    return Outcome::unavailable;
  }
  elevatorsEnd = posix::FileDescriptor();
  const News news = waitForNews(channel, agent, end);
  if (news == News::fromElevator && isHello(channel, *elevator)) return Outcome::granted;
  if (news != News::fromElevator) elevator->terminate();
  channel.close();
  const Outcome outcome = news == News::none        ? Outcome::timedOut
                          : news == News::agentGone ? Outcome::refused
                                                    : outcomeOf(*elevator);
  elevator.reset();
  return outcome;
}

}  // namespace platform
