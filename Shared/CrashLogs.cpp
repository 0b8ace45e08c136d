#include "Shared/CrashLogs.h"

#include "Shared/QVLocalPaths.h"
#include "platform/CrashLog.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/Text.h"

namespace crash_logs {
namespace {

namespace file_system = platform::file_system;
namespace path = platform::path;

constexpr char kDiagnosticReports[] = "DiagnosticReports";

// The names of a folder come sorted, so the last match stands furthest back.
std::optional<std::string> lastWithPrefix(const std::string& folder, const std::string& prefix) {
  const auto names = file_system::list(folder);
  if (!names) return std::nullopt;
  for (auto name = names->rbegin(); name != names->rend(); ++name) {
    if (platform::text::hasPrefixIgnoringCase(*name, prefix)) return path::appending(folder, *name);
  }
  return std::nullopt;
}

bool isNewer(const std::string& log, std::chrono::system_clock::time_point date) {
  const auto attributes = file_system::attributes(log);
  return attributes && attributes->modificationDate > date;
}

}  // namespace

std::optional<std::string> newerThan(std::chrono::system_clock::time_point date,
                                     const std::string& applicationName) {
  // The names are matched with a text in which this one stands in single quotes, unescaped: one in
  // the name itself leaves nothing that could match.
  if (applicationName.find('\'') != std::string::npos) return std::nullopt;
  for (const bool user : {true, false}) {
    for (const char* kind : {"CrashReporter", kDiagnosticReports}) {
      const auto folder = path::appending(QVLocalPaths::logDirectory(user), kind);
      if (!folder) continue;
      auto log = lastWithPrefix(*folder, applicationName + "_");
      if (log && isNewer(*log, date)) return log;
    }
  }
  return std::nullopt;
}

void startWriting() {
  for (const bool user : {true, false}) {
    const auto folder = path::appending(QVLocalPaths::logDirectory(user), kDiagnosticReports);
    if (folder && platform::crash_log::installWriter(*folder)) return;
  }
}

}  // namespace crash_logs
