#pragma once

#include <string>
#include <utility>

namespace platform {

// What a system call on behalf of the caller came to: success, or an error number of the system
// with a description for a person. Failures are values; nothing in the file layer throws them.
class [[nodiscard]] Status {
 public:
  // Success.
  Status() = default;

  // A failure. `code` is an error number of the POSIX domain (errno) and never 0; `description` is
  // UTF-8.
  static Status failure(int code, std::string description) {
    return Status(code, std::move(description));
  }

  bool ok() const noexcept { return code_ == 0; }
  // 0 on success.
  int code() const noexcept { return code_; }
  // Empty on success.
  const std::string& description() const noexcept { return description_; }

 private:
  Status(int code, std::string description) : code_(code), description_(std::move(description)) {}

  int code_ = 0;
  std::string description_;
};

}  // namespace platform
