#pragma once

#include <string>
#include <vector>

#include "posix/FileDescriptor.h"

// When the session helper may do what concerns a path: after the tools of this process that
// still work there, and after the deferred verbs that were asked for before.
namespace platform::session_helper {

struct Turn {
  // Whether it must wait. What follows is then how the program is started for that.
  bool isLater = false;
  // The words of helper_verb::After.
  std::vector<std::string> arguments;
  // What it has from its third descriptor on (ChildProgram::further): one to hold as long as it
  // lasts, two for the tools of each session, see Writers.h, and those that end with the earlier
  // deferred verbs.
  std::vector<posix::FileDescriptor> descriptors;
  // When it need not wait: whether the tool that worked on such a path last failed.
  bool isAfterFailure = false;
};

// The turn of `verb`, a verb and its arguments, that concerns the absolute `paths`. When it is a
// later one the caller starts the program at once, or those who come after wait for this turn to be
// destroyed. Any thread.
Turn turnOf(const std::vector<std::string>& verb, const std::vector<std::string>& paths);

}  // namespace platform::session_helper
