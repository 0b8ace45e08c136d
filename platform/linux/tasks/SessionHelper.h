#pragma once

#include <string>
#include <string_view>
#include <vector>

// The small program that stands beside this one and does what must be done apart from it.
namespace platform::session_helper {

// Runs a verb of it, in the words of SessionHelperVerbs.h, and waits for its end, which every verb
// bounds. Answers whether it did what it was asked for; false also when the program is missing. Any
// thread.
bool run(const std::vector<std::string>& words);

// What became of a verb that must be done with the whole of some items.
enum class Handover {
  // No tool of this process is still writing one of them and no earlier deferred verb concerns one:
  // the caller does it now.
  notNeeded,
  // It was left to the program, which carries it out when those have ended, in order, also when
  // this process is gone.
  accepted,
  // It is not carried out, as after a tool that failed, which is told on the console.
  refused,
};

// Leaves a verb that concerns the items at `paths` to the program if they are not whole yet.
// Answers at once. Any thread.
Handover handOver(const std::vector<std::string>& verb, const std::vector<std::string>& paths);

// Tells on the console that `verb` is not carried out because a tool failed to write the item that
// it concerns, which is its last word.
void tellIncomplete(const std::vector<std::string>& verb);

}  // namespace platform::session_helper
