#pragma once

#include <cstddef>
#include <string>

namespace bug_reporter {

// A crash log as it can be shown. Whoever wrote the file is not trusted: only an ordinary file is
// read, no more than a bounded part of it, and every text here is valid UTF-8.
struct CrashLogText {
  // The application that the file's name begins with; "" when it does not.
  std::string application = {};
  std::string path = {};
  // What the file says; or, in words for a person, why it does not.
  std::string text = {};
  bool readable = false;
};

// How much of a file is shown, in bytes.
inline constexpr std::size_t kLargestShown = 256 << 10;

// Blocks for the disk.
CrashLogText readCrashLog(const std::string& path);

}  // namespace bug_reporter
