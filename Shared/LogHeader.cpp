#include "Shared/LogHeader.h"

#include <chrono>

#include "Shared/QVLog.h"
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

void append() {
  namespace process_info = platform::process_info;
  const platform::Bundle& bundle = platform::Bundle::main();
  QVLog::fastAppendLog("Log started: %@\n",
                       platform::date::description(std::chrono::system_clock::now()));
  if (const auto version = bundle.infoString("CFBundleVersion")) {
    QVLog::fastAppendLog("Version: %@\n", *version);
  }
  QVLog::fastAppendLog("Path: %@\n", bundle.executablePath());
  QVLog::appendLog(
      "%@", systemLine(process_info::operatingSystemVersion(), process_info::processorCount(),
                       process_info::physicalMemory()));
  if constexpr (k64Bit) QVLog::fastAppendLog("Running in 64-bit mode\n");
}

}  // namespace log_header
