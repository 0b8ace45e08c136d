#pragma once

#include <optional>

#include "posix/FileDescriptor.h"

namespace platform {

// What terminationStatus of a tool is when it cannot be known: the elevator went first.
inline constexpr int kUnknownEnd = -1;

// Takes the one status that comes on a pipe of the elevator, see channel/Messages.h; blocks until
// it has come or the elevator is gone, and then answers none.
std::optional<int> takeReport(const posix::FileDescriptor& pipe);

// Blocks until a pipe on which nothing comes has ended.
void waitForEnd(const posix::FileDescriptor& pipe);

// Whether there is something to read on a pipe, its end included.
bool isReadable(const posix::FileDescriptor& pipe);

}  // namespace platform
