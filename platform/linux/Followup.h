#pragma once

#include <string>
#include <vector>

// The small program that stands beside this one and does what must be done apart from it.
namespace platform::followup {

// Runs a verb of it with its arguments and waits for its end, which every verb bounds. Answers
// whether it did what it was asked for; false also when the program is missing. Any thread.
bool run(const std::vector<std::string>& arguments);

}  // namespace platform::followup
