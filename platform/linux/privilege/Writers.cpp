#include "platform/linux/privilege/Writers.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include "channel/NamedPaths.h"
#include "channel/Packet.h"
#include "platform/NoDestructor.h"
#include "platform/linux/privilege/ToolReport.h"

namespace platform::writers {
namespace {

constexpr std::chrono::minutes kLostLimit(1);

// A tool whose session was lost.
struct Lost {
  std::vector<std::string> paths;
  posix::FileDescriptor life;
};

struct Sessions {
  // Guards what follows, and keeps each from ending while it is asked.
  std::mutex mutex;
  std::vector<Session*> all;
  std::vector<Lost> lost;
};

Sessions& sessions() {
  static NoDestructor<Sessions> instance;
  return *instance;
}

posix::FileDescriptor copyOf(const posix::FileDescriptor& descriptor) {
  return posix::FileDescriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

// Those that run on though nobody will tell how they end.
void addUnknown(Writers& writers, const posix::FileDescriptor& life) {
  if (!life || isReadable(life)) {
    writers.failed = true;
  } else {
    writers.running.push_back({copyOf(life), copyOf(life)});
  }
}

void addObserved(Writers& writers, Session::Observation observation) {
  if (!observation.report) {
    if (observation.lost) addUnknown(writers, observation.life);
  } else if (!isReadable(observation.report)) {
    writers.running.push_back({std::move(observation.report), std::move(observation.life)});
  } else if (const auto status = takeReport(observation.report)) {
    writers.failed = writers.failed || *status != 0;
  } else {
    addUnknown(writers, observation.life);
  }
}

std::vector<posix::FileDescriptor> livesOn(const std::vector<Lost>& lost,
                                           const std::vector<std::string>& paths) {
  std::vector<posix::FileDescriptor> lives;
  for (const Lost& each : lost) {
    if (channel::overlap(each.paths, paths)) lives.push_back(copyOf(each.life));
  }
  return lives;
}

}  // namespace

Writers on(const std::string& path) {
  Writers result;
  Sessions& known = sessions();
  const std::lock_guard lock(known.mutex);
  for (const auto& life : livesOn(known.lost, channel::namedPaths({path}))) {
    addUnknown(result, life);
  }
  for (Session* session : known.all) addObserved(result, session->observe(path));
  return result;
}

void add(Session& session) {
  Sessions& known = sessions();
  const std::lock_guard lock(known.mutex);
  known.all.push_back(&session);
}

void remove(Session& session) {
  Sessions& known = sessions();
  const std::lock_guard lock(known.mutex);
  std::erase(known.all, &session);
}

void markEndUnknown(const std::vector<std::vector<std::string>>& paths,
                    const posix::FileDescriptor& life) {
  Sessions& known = sessions();
  const std::lock_guard lock(known.mutex);
  for (const auto& each : paths) known.lost.push_back({each, copyOf(life)});
}

void waitForUnknownEnds(const std::vector<std::string>& paths) {
  Sessions& known = sessions();
  std::vector<posix::FileDescriptor> lives;
  {
    const std::lock_guard lock(known.mutex);
    lives = livesOn(known.lost, paths);
  }
  for (const posix::FileDescriptor& life : lives) channel::waitReadable(life.get(), kLostLimit);
}

void markRewritten(const std::vector<std::string>& paths) {
  Sessions& known = sessions();
  const std::lock_guard lock(known.mutex);
  std::erase_if(known.lost,
                [&paths](const Lost& each) { return channel::overlap(each.paths, paths); });
}

}  // namespace platform::writers
