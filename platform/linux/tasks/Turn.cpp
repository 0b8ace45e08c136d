#include "platform/linux/tasks/Turn.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <mutex>
#include <utility>

#include "channel/NamedPaths.h"
#include "platform/NoDestructor.h"
#include "platform/linux/SessionHelperVerbs.h"
#include "platform/linux/privilege/Writers.h"
#include "posix/PipeEnds.h"

namespace platform::session_helper {
namespace {

// A deferred verb that was asked for and may not have ended.
struct Earlier {
  std::vector<std::string> paths;
  // Reaches its end with the deferred verb.
  posix::FileDescriptor end;
};

struct Turns {
  // Guards what follows.
  std::mutex mutex;
  std::vector<Earlier> earlier;
};

Turns& turns() {
  static NoDestructor<Turns> instance;
  return *instance;
}

bool hasEnded(const Earlier& verb) {
  pollfd entry{verb.end.get(), POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1;
}

posix::FileDescriptor copyOf(const posix::FileDescriptor& descriptor) {
  return posix::FileDescriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

std::vector<posix::FileDescriptor> endsOfEarlier(std::vector<Earlier>& earlier,
                                                 const std::vector<std::string>& paths) {
  std::erase_if(earlier, hasEnded);
  std::vector<posix::FileDescriptor> ends;
  for (const Earlier& each : earlier) {
    if (channel::overlap(each.paths, paths)) ends.push_back(copyOf(each.end));
  }
  return ends;
}

writers::Writers writersOn(const std::vector<std::string>& paths) {
  writers::Writers all;
  for (const std::string& path : paths) {
    writers::Writers found = writers::on(path);
    std::ranges::move(found.running, std::back_inserter(all.running));
    all.failed = all.failed || found.failed;
  }
  return all;
}

// Makes this deferred verb one that later ones wait for; answers what it must hold as long as it
// lasts.
posix::FileDescriptor enter(std::vector<Earlier>& earlier, std::vector<std::string> paths) {
  posix::PipeEnds pipe = posix::makePipe();
  // Without descriptors nobody can wait for it, and it could not be started either.
  if (!pipe.reading) return {};
  earlier.push_back({std::move(paths), std::move(pipe.reading)});
  return std::move(pipe.writing);
}

}  // namespace

Turn turnOf(const std::vector<std::string>& verb, const std::vector<std::string>& paths) {
  const std::vector<std::string> named = channel::namedPaths(paths);
  Turns& state = turns();
  const std::lock_guard lock(state.mutex);
  writers::Writers writers = writersOn(paths);
  std::vector<posix::FileDescriptor> earlier = endsOfEarlier(state.earlier, named);
  Turn turn;
  turn.isAfterFailure = writers.failed;
  // What may not be done at all need not wait for its turn, in which the failure would be
  // forgotten.
  const bool isRefused = writers.failed && writers.running.empty() && verb.front() != "detach";
  turn.isLater = !writers.running.empty() || (!earlier.empty() && !isRefused);
  if (!turn.isLater) return turn;
  turn.arguments = helper_verb::words(helper_verb::After{static_cast<int>(writers.running.size()),
                                                         static_cast<int>(earlier.size()), verb});
  turn.descriptors.push_back(enter(state.earlier, named));
  for (writers::Running& each : writers.running) {
    turn.descriptors.push_back(std::move(each.report));
    turn.descriptors.push_back(std::move(each.life));
  }
  std::ranges::move(earlier, std::back_inserter(turn.descriptors));
  return turn;
}

}  // namespace platform::session_helper
