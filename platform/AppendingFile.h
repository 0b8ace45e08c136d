#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace platform {

// A file that is open for writing at its end. One thread at a time.
class AppendingFile {
 public:
  // Opens an existing file and seeks to its end; null when it cannot be opened. Child programs do
  // not inherit it.
  static std::shared_ptr<AppendingFile> open(const std::string& path);
  virtual ~AppendingFile() = default;

  // Writes all of `bytes`. Raises platform::Exception (kFileHandleOperation) with the system's
  // reason when that fails, or when the file was closed; part may then have been written.
  virtual void write(std::string_view bytes) = 0;

  // Idempotent.
  virtual void close() = 0;
};

}  // namespace platform
