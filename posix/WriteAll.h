#pragma once

#include <cstddef>
#include <string_view>

namespace posix {

struct WriteResult {
  // Bytes that were written, also when the rest failed.
  std::size_t written = 0;
  // 0 or an error number (errno(3)).
  int error = 0;
};

// Writes `bytes` to a descriptor, going on after interruptions and partial writes, and waiting for
// a descriptor that does not block to take more.
WriteResult writeAll(int descriptor, std::string_view bytes);

}  // namespace posix
