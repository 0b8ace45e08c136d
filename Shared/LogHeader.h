#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace log_header {

// The header's line about the machine. `memory` is in bytes and printed in units of 1024 cubed.
std::string systemLine(std::string_view operatingSystem, long processors, std::uint64_t memory);

struct Line {
  std::string text;
  // Whether who starts the log waits until it is on the disk, as for a message of the application.
  bool isWaitedFor = false;
};

// The lines with which a log file begins.
std::vector<Line> lines();

}  // namespace log_header
