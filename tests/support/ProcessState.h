#pragma once

#include <cstddef>

// What this process holds, for tests that nothing is left behind.
namespace test {

// Open descriptors and threads of this process.
std::size_t openDescriptors();
std::size_t threads();

// Children of this process, running or not collected.
std::size_t children();

}  // namespace test
