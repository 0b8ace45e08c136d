#pragma once

#include <chrono>
#include <string>

namespace platform::date {

using Date = std::chrono::system_clock::time_point;

// The date as every log line prints it: local time, with its zone's offset, to the second:
// "2026-11-20 21:21:11 +0100". Locale-independent. Thread-safe.
std::string description(Date date);

// The local date and time as fourteen digits, "%Y%m%d%H%M%S": "20261120212111". Thread-safe.
std::string timeStamp(Date date);

}  // namespace platform::date
