#pragma once

#include <string>

namespace test {

// Whether something else is mounted at `path` than in the folder above it.
bool isMountPoint(const std::string& path);

}  // namespace test
