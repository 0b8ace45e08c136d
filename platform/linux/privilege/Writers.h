#pragma once

#include <string>
#include <vector>

#include "posix/FileDescriptor.h"

// What the tools that this process has started as the superuser, and not waited for, still do. Any
// thread.
namespace platform::writers {

// A session that runs tools, as seen by who asks what they do.
class Session {
 public:
  struct Observation {
    // Where the status of the last tool on a path comes once all have ended, see ToolReport.h;
    // empty when this session has run no tool, or was lost.
    posix::FileDescriptor report;
    // What ends when the elevator and all its tools have ended, see channel/Messages.h.
    posix::FileDescriptor life;
    // Whether nobody knows any more what became of a tool on such a path.
    bool lost = false;
  };

  virtual ~Session() = default;
  // What becomes of the tools that name a path overlapping `path` and whose output is discarded.
  virtual Observation observe(const std::string& path) = 0;
};

// Tools of one session.
struct Running {
  // A pipe on which the status of the last one comes, see ToolReport.h.
  posix::FileDescriptor report;
  // When that ends without a status, the tools have ended with this one.
  posix::FileDescriptor life;
};

struct Writers {
  // One for each session in which a tool that names an overlapping path has not ended.
  std::vector<Running> running;
  // Whether, in a session in which all have ended, the last one failed, or nobody knows how it
  // ended.
  bool failed = false;
};

// Those that name a path inside, above or equal to `path`, which is absolute. Asks each elevator,
// which answers at once.
Writers on(const std::string& path);

// A session is asked from its making to its end.
void add(Session& session);
void remove(Session& session);

// Keeps in mind the paths, one list a tool, on which a session that is gone leaves tools of which
// nobody knows how they end, until a later tool writes there. They have ended with `life`.
void markEndUnknown(const std::vector<std::vector<std::string>>& paths,
                    const posix::FileDescriptor& life);
// Blocks until all such tools that name an overlapping path have ended, at most a minute for each:
// an elevator that is lost may hang for ever.
void waitForUnknownEnds(const std::vector<std::string>& paths);
void markRewritten(const std::vector<std::string>& paths);

}  // namespace platform::writers
