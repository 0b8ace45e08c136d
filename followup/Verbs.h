#pragma once

#include <string>
#include <vector>

// What the follow-up program can be asked to do, one source file a verb. Each takes the words after
// the verb and answers the program's exit status.
namespace followup {

using Arguments = std::vector<std::string>;

// The command line was wrong.
inline constexpr int kUsageError = 64;

}  // namespace followup
