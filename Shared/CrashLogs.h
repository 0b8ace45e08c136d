#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace crash_logs {

// The full path of a crash log of the application that was modified after `date`. Looked for in the
// folders CrashReporter and DiagnosticReports of the user's logs, then of the machine's. A crash
// log's name begins with the application's and an underscore, in either letter case; of each folder
// only the last of these names in byte order is examined. A name with a single quote in it has
// none.
std::optional<std::string> newerThan(std::chrono::system_clock::time_point date,
                                     const std::string& applicationName);

// Has a crash of this process leave a crash log where newerThan finds it, see platform/CrashLog.h:
// in DiagnosticReports of the user's logs, else of the machine's. Of the logs that earlier crashes
// have left there the newest twenty stay. Call once, first thing in `main`.
void startWriting();

}  // namespace crash_logs
