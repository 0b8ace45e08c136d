#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

// What processes hold, for tests that nothing is left behind, and do.
namespace test {

// Whether a process ignores a signal.
bool ignores(pid_t process, int signal);

// Open descriptors of this process.
std::size_t openDescriptors();

// Threads of this process but the one of its own that the thread sanitizer starts with the first.
std::size_t threads();

// Children of a process, running or not collected; of this one.
std::vector<pid_t> childIdsOf(pid_t process);
std::vector<pid_t> childIds();
std::size_t children();

}  // namespace test
