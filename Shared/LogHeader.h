#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace log_header {

// The header's line about the machine. `memory` is in bytes and printed in units of 1024 cubed.
std::string systemLine(std::string_view operatingSystem, long processors, std::uint64_t memory);

// Queues the lines with which a log file begins.
void append();

}  // namespace log_header
