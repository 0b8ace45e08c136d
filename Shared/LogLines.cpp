#include "Shared/LogLines.h"

#include <algorithm>
#include <chrono>

#include "platform/Date.h"

namespace {

constexpr std::string_view kSeparator = " - ";

// The description of the present date. Lines come much faster than seconds pass.
const std::string& presentDate() {
  using std::chrono::system_clock;
  thread_local std::chrono::sys_seconds described;
  thread_local std::string description;
  const auto now = std::chrono::floor<std::chrono::seconds>(system_clock::now());
  if (description.empty() || now != described) {
    described = now;
    description = platform::date::description(now);
  }
  return description;
}

}  // namespace

void LogLines::add(std::string_view text) {
  bytes_ += presentDate();
  bytes_ += kSeparator;
  bytes_ += text;
  bytes_ += '\n';
  ends_.push_back(bytes_.size());
}

std::size_t LogLines::wholeIn(std::size_t byteCount) const {
  const auto beyond = std::upper_bound(ends_.begin(), ends_.end(), byteCount);
  return static_cast<std::size_t>(beyond - ends_.begin());
}
