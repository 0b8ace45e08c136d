#pragma once

#include <cstdint>
#include <string>

// Facts about this process and its machine. Any thread.
namespace platform::process_info {

// The full path of the running program's file; when the file has been removed or replaced
// meanwhile, the path that it had. "" when the system does not say.
std::string executablePath();
// The name of the running program's file.
std::string processName();
// For a person: name and version of the operating system.
std::string operatingSystemVersion();
// Processors that are online.
long processorCount();
// Bytes of main memory.
std::uint64_t physicalMemory();
// A text of 36 characters that no other call, here or elsewhere, answers: a random UUID.
std::string globallyUniqueString();

using UserId = std::uint32_t;
inline constexpr UserId kSuperuser = 0;

// The real user id, asked of the system anew at each call.
UserId userId();
inline bool isSuperuser() {
  return userId() == kSuperuser;
}
// Makes this process run as `id`, real, effective and saved; false when it may not.
bool setUserId(UserId id);

}  // namespace platform::process_info
