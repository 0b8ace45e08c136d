#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The small program that stands beside this one and does what must be done apart from it.
namespace platform::session_helper {

// Runs a verb of it with its arguments and waits for its end, which every verb bounds. Answers
// whether it did what it was asked for; false also when the program is missing. Any thread.
bool run(const std::vector<std::string>& arguments);

// For what must be done with the whole of the items at `paths`: none when no tool of this process
// is still writing one of them and no earlier deferred verb concerns one, so that it may be done
// now. Otherwise what the caller is to be answered at once: true when the verb was left to the
// program, which carries it out when those have ended, in order, also when this process is gone;
// false when it was not, as after a tool that failed, which is told on the console. Any thread.
std::optional<bool> heldBack(const std::vector<std::string>& verb,
                             const std::vector<std::string>& paths);

// Tells on the console that `verb` is not carried out because a tool failed to write the item that
// it concerns, which is its last word.
void tellIncomplete(const std::vector<std::string>& verb);

}  // namespace platform::session_helper
