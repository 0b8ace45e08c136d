#pragma once

#include <string>
#include <vector>

namespace session_helper {

// Starts a program in a session of its own, with the null device at its three ends and no other
// descriptor, and leaves it running. Waits until it runs or could not be started, at most some
// seconds; answers 0 or the system's error number. `command`'s first word is the program's absolute
// path.
int startDetached(const std::vector<std::string>& command);

// Runs a program likewise, but waits for its end, at most `seconds`; then it is left running.
// Answers whether it ended with status 0.
bool runToEnd(const std::vector<std::string>& command, int seconds);

}  // namespace session_helper
