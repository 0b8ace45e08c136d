#include "Shared/LogHeader.h"

#include <chrono>

#include "platform/Bundle.h"
#include "platform/Date.h"
#include "platform/Format.h"
#include "platform/ProcessInfo.h"

namespace log_header {
namespace {

constexpr bool k64Bit = sizeof(void*) == 8;

}  // namespace

std::string systemLine(std::string_view operatingSystem, long processors, std::uint64_t memory) {
  constexpr double kKilobyte = 0.0009765625;
  const double gigabytes = static_cast<double>(memory) * kKilobyte * kKilobyte * kKilobyte;
  return platform::formatted("System: OS X %@, %li CPU(s), %0.2f GB RAM\n", operatingSystem,
                             processors, gigabytes);
}

std::vector<Line> lines() {
  namespace process_info = platform::process_info;
  const platform::Bundle& bundle = platform::Bundle::main();
  std::vector<Line> lines = {{platform::formatted(
      "Log started: %@\n", platform::date::description(std::chrono::system_clock::now()))}};
  if (const auto version = bundle.infoString("CFBundleVersion")) {
    lines.push_back({platform::formatted("Version: %@\n", *version)});
  }
  lines.push_back({platform::formatted("Path: %@\n", bundle.executablePath())});
  lines.push_back({systemLine(process_info::operatingSystemVersion(),
                              process_info::processorCount(), process_info::physicalMemory()),
                   true});
  if constexpr (k64Bit) lines.push_back({"Running in 64-bit mode\n"});
  return lines;
}

}  // namespace log_header
