#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Status.h"

namespace platform {

// A file that is open for writing at its end. Thread-safe: appends and a close stand in line.
class AppendingFile {
 public:
  // Opens an existing regular file to write behind its end; null when it cannot be opened. Child
  // programs do not inherit it.
  static std::shared_ptr<AppendingFile> open(const std::string& path);
  virtual ~AppendingFile() = default;

  struct Appended {
    // Bytes that are in the file; all of them unless `status` is a failure.
    std::size_t bytes = 0;
    Status status;
  };

  // Writes `bytes` behind the file's end, which is where it stands at that moment, also when other
  // processes write to it. Blocks for as long as the disk takes. Fails with the system's reason,
  // and always once the file was closed; part may then have been written.
  virtual Appended append(std::string_view bytes) = 0;

  // Idempotent. Waits for an append that is under way.
  virtual void close() = 0;
};

}  // namespace platform
