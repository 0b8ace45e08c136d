#include "platform/linux/desktop/FollowupTurns.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <mutex>
#include <utility>

#include "elevator/NamedPaths.h"
#include "platform/NoDestructor.h"
#include "platform/linux/privilege/Writers.h"

namespace platform::followup {
namespace {

// A follow-up that was asked for and may not have ended.
struct Earlier {
  std::vector<std::string> paths;
  // Reaches its end with the follow-up.
  FileDescriptor end;
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

bool hasEnded(const Earlier& followup) {
  pollfd entry{followup.end.get(), POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1;
}

FileDescriptor copyOf(const FileDescriptor& descriptor) {
  return FileDescriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

std::vector<FileDescriptor> endsOfEarlier(std::vector<Earlier>& earlier,
                                          const std::vector<std::string>& paths) {
  std::erase_if(earlier, hasEnded);
  std::vector<FileDescriptor> ends;
  for (const Earlier& each : earlier) {
    if (elevator::overlap(each.paths, paths)) ends.push_back(copyOf(each.end));
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

// Makes this follow-up one that later ones wait for; answers what it must hold as long as it lasts.
FileDescriptor enter(std::vector<Earlier>& earlier, std::vector<std::string> paths) {
  std::array<int, 2> ends{};
  // Without descriptors nobody can wait for it, and it could not be started either.
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return {};
  earlier.push_back({std::move(paths), FileDescriptor(ends[0])});
  return FileDescriptor(ends[1]);
}

}  // namespace

Turn turnOf(const std::vector<std::string>& verb, const std::vector<std::string>& paths) {
  const std::vector<std::string> named = elevator::namedPaths(paths);
  Turns& state = turns();
  const std::lock_guard lock(state.mutex);
  writers::Writers writers = writersOn(paths);
  std::vector<FileDescriptor> earlier = endsOfEarlier(state.earlier, named);
  Turn turn;
  turn.isAfterFailure = writers.failed;
  turn.isLater = !writers.running.empty() || !earlier.empty();
  if (!turn.isLater) return turn;
  turn.arguments = {"after", std::to_string(writers.running.size()),
                    std::to_string(earlier.size())};
  turn.arguments.insert(turn.arguments.end(), verb.begin(), verb.end());
  turn.descriptors.push_back(enter(state.earlier, named));
  std::ranges::move(writers.running, std::back_inserter(turn.descriptors));
  std::ranges::move(earlier, std::back_inserter(turn.descriptors));
  return turn;
}

}  // namespace platform::followup
