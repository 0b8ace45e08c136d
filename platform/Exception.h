#pragma once

#include <exception>
#include <string>

namespace platform {

// The one exception class that platform services raise and that callers may catch and describe.
// Every other exception type passes through the code that catches this one.
class Exception : public std::exception {
 public:
  Exception(std::string name, std::string reason);

  // A stable identifier of the kind of failure, for example kInvalidArgument.
  const std::string& name() const noexcept { return name_; }
  // What happened, for a person, UTF-8.
  const std::string& reason() const noexcept { return reason_; }
  const char* what() const noexcept override { return reason_.c_str(); }

 private:
  std::string name_;
  std::string reason_;
};

// Names of the exceptions that the services behind the seam raise.
namespace exception_name {
inline constexpr char kInvalidArgument[] = "NSInvalidArgumentException";
inline constexpr char kGeneric[] = "NSGenericException";
inline constexpr char kFileHandleOperation[] = "NSFileHandleOperationException";
inline constexpr char kInvalidSendPort[] = "NSInvalidSendPortException";
inline constexpr char kPortTimeout[] = "NSPortTimeoutException";
}  // namespace exception_name

using UncaughtExceptionHandler = void (*)(const Exception&);

// Installs the function that sees an Exception that nobody caught, just before the process dies of
// it. Replaces an earlier one; null removes it. The handler runs on the throwing thread and must
// not throw. Thread-safe.
void setUncaughtExceptionHandler(UncaughtExceptionHandler handler) noexcept;

}  // namespace platform
