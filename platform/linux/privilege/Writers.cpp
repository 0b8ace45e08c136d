#include "platform/linux/privilege/Writers.h"

#include <poll.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "channel/NamedPaths.h"
#include "platform/NoDestructor.h"
#include "platform/linux/privilege/ToolReport.h"

namespace platform::writers {
namespace {

struct Sessions {
  // Guards what follows, and keeps each from ending while it is asked.
  std::mutex mutex;
  std::vector<Session*> all;
  // Of tools whose session was lost, one list a tool.
  std::vector<std::vector<std::string>> unknownEnds;
};

Sessions& sessions() {
  static NoDestructor<Sessions> instance;
  return *instance;
}

bool isReadable(const posix::FileDescriptor& pipe) {
  pollfd entry{pipe.get(), POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1;
}

}  // namespace

Writers on(const std::string& path) {
  Writers result;
  Sessions& known = sessions();
  const std::lock_guard lock(known.mutex);
  result.failed = std::ranges::any_of(known.unknownEnds,
                                      [named = channel::namedPaths({path})](const auto& each) {
                                        return channel::overlap(each, named);
                                      });
  for (Session* session : known.all) {
    Session::Observation observation = session->observe(path);
    if (observation.report && !isReadable(observation.report)) {
      result.running.push_back(std::move(observation.report));
    } else if (observation.report) {
      result.failed = result.failed || takeReport(observation.report) != 0;
    } else {
      result.failed = result.failed || observation.lost;
    }
  }
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

void markEndUnknown(const std::vector<std::vector<std::string>>& paths) {
  Sessions& known = sessions();
  const std::lock_guard lock(known.mutex);
  known.unknownEnds.insert(known.unknownEnds.end(), paths.begin(), paths.end());
}

void markRewritten(const std::vector<std::string>& paths) {
  Sessions& known = sessions();
  const std::lock_guard lock(known.mutex);
  std::erase_if(known.unknownEnds,
                [&paths](const auto& each) { return channel::overlap(each, paths); });
}

}  // namespace platform::writers
