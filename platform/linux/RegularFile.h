#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

// The whole of a regular file of at most `limit` bytes; none when it cannot be read, is larger or
// is no regular file. Never waits for the other end of a pipe that somebody put in its place.
std::optional<std::string> readRegularFile(const std::string& path, std::uint64_t limit);

}  // namespace platform
