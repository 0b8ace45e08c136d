#include "Shared/CrashLogs.h"

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "Shared/QVLocalPaths.h"
#include "platform/Bundle.h"
#include "platform/CrashLog.h"
#include "platform/Path.h"
#include "platform/PersonalFiles.h"
#include "platform/ProcessInfo.h"
#include "platform/Text.h"

namespace crash_logs {
namespace {

namespace personal_files = platform::personal_files;
namespace path = platform::path;

constexpr char kDiagnosticReports[] = "DiagnosticReports";
constexpr std::size_t kKept = 20;

// The names of a folder come sorted, so the last match stands furthest back.
std::optional<std::string> lastWithPrefix(const std::string& folder, const std::string& prefix) {
  const auto names = personal_files::list(folder);
  if (!names) return std::nullopt;
  for (auto name = names->rbegin(); name != names->rend(); ++name) {
    if (platform::text::hasPrefixIgnoringCase(*name, prefix)) return path::appending(folder, *name);
  }
  return std::nullopt;
}

bool isNewer(const std::string& log, std::chrono::system_clock::time_point date) {
  const auto modified = personal_files::modificationDate(log);
  return modified && *modified > date;
}

// Removes this application's own crash logs but for the newest.
void clearAway(const std::string& folder, const std::string& applicationName) {
  const auto names = personal_files::list(folder);
  std::vector<std::pair<std::chrono::system_clock::time_point, std::string>> logs;
  for (const std::string& name : names.value_or(std::vector<std::string>())) {
    if (!name.starts_with(applicationName + "_") || !name.ends_with(".crash")) continue;
    const std::string log = folder + "/" + name;
    if (const auto date = personal_files::modificationDate(log)) logs.emplace_back(*date, log);
  }
  std::ranges::sort(logs, std::greater());
  for (std::size_t i = kKept; i < logs.size(); ++i) {
    static_cast<void>(personal_files::remove(logs[i].second));
  }
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
    if (!folder || !platform::crash_log::installWriter(*folder)) continue;
    clearAway(*folder, platform::Bundle::main()
                           .infoString("CFBundleName")
                           .value_or(platform::process_info::processName()));
    return;
  }
}

}  // namespace crash_logs
