#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

namespace session_helper {

// A path as proc(5) writes it in its mount tables, with white space and backslashes as three octal
// digits, read back. What is no such escape is kept.
std::string unescaped(std::string_view field);

// Whether something is mounted at exactly `path` according to a table in the form of
// /proc/self/mountinfo.
bool isMountPoint(const std::string& path, std::istream& mountInfo);

// The device, as "major:minor", of what was mounted last at exactly `path` according to such a
// table; "" when nothing is.
std::string deviceMountedAt(const std::string& path, std::istream& mountInfo);

struct Mount {
  std::string device;  // as "major:minor"
  std::string type;
  // Of the file system, with commas between.
  std::string options;
};

// The mount of that number (STATX_MNT_ID) according to such a table; none when it has none.
std::optional<Mount> mountOf(std::uint64_t number, std::istream& mountInfo);

}  // namespace session_helper
