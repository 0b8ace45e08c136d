#include "Shared/QVBugReporter.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include "Shared/CrashLogs.h"
#include "Shared/GlobalPreferences.h"
#include "Shared/QVLocalPaths.h"
#include "Shared/QVLog.h"
#include "Shared/QVTaskEx.h"
#include "Shared/RunRecord.h"
#include "platform/Bundle.h"
#include "platform/Console.h"
#include "platform/MainThread.h"
#include "platform/Path.h"
#include "platform/PersonalFiles.h"
#include "platform/Workspace.h"

namespace {

using namespace std::chrono_literals;
namespace path = platform::path;

constexpr char kDisableKey[] = "disable-crash-reporter";
constexpr char kReporterName[] = "Bug Reporter";
constexpr char kReporterType[] = "app";
constexpr char kReporterIdentifier[] = "com.quorvale.BugReporter";
constexpr char kDisabledMessage[] = "Crash reporter disabled";
// What a name that nobody has given is printed as.
constexpr char kNull[] = "(null)";
constexpr char kChown[] = "/usr/sbin/chown";
constexpr auto kLongestChown = 5.0s;

bool endedWell(const run_record::Dates& dates) {
  return dates.exit && *dates.exit >= *dates.launch;
}

void openReporter(const std::string& log) {
  const auto reporter = platform::Bundle::main().resourcePath(kReporterName, kReporterType);
  if (reporter) {
    platform::workspace::openWithApplication(log, *reporter);
  } else {
    platform::workspace::openWithBundleIdentifier(log, kReporterIdentifier);
  }
}

void tell(const QVBugReporter::Delegate& delegate, const std::string& log) {
  if (!delegate || !delegate->applicationDidCrashWithLog) return;
  platform::main_thread::perform([told = delegate->applicationDidCrashWithLog, log] { told(log); },
                                 platform::main_thread::Wait::no);
}

void record(const char* key, const QVBugReporter::Name& plistPath) {
  run_record::write(key, plistPath);
  if (plistPath) QVBugReporter::chownPlist(*plistPath);
}

// chown would read these as something else than a user.
bool isUserName(const std::string& name) {
  return name != "/" && !name.starts_with('-') && name.find(':') == std::string::npos;
}

}  // namespace

// static
void QVBugReporter::startBugReporter() {
  startBugReporter(std::nullopt, std::nullopt, std::nullopt);
}

// static
void QVBugReporter::startBugReporterWithDelegate(const Delegate& delegate) {
  startBugReporter(std::nullopt, std::nullopt, delegate);
}

// static
void QVBugReporter::startBugReporter(const Name& appName, const Name& plistPath) {
  startBugReporter(appName, plistPath, std::nullopt);
}

// static
void QVBugReporter::startBugReporter(const Name& appName, const Name& plistPath,
                                     const Delegate& delegate) {
  // Before the new date is written: it is the previous run's that counts.
  if (const auto log = checkForCrashes(appName, plistPath)) tell(delegate, *log);
  record(run_record::kLaunch, plistPath);
}

// static
void QVBugReporter::stopBugReporter() {
  stopBugReporter(std::nullopt);
}

// static
void QVBugReporter::stopBugReporter(const Name& plistPath) {
  record(run_record::kExit, plistPath);
}

// static
std::optional<std::string> QVBugReporter::checkForCrashes() {
  return checkForCrashes(std::nullopt, std::nullopt);
}

// static
std::optional<std::string> QVBugReporter::checkForCrashes(const Name& appName,
                                                          const Name& plistPath) {
  const auto dates = run_record::read(plistPath);
  if (!dates.launch || endedWell(dates)) return std::nullopt;
  const auto name = appName ? appName : platform::Bundle::main().infoString("CFBundleName");
  auto log = crash_logs::newerThan(*dates.launch, name.value_or(kNull));
  if (!log) return std::nullopt;
  QVLog::appendLog("Application crashed on last launch");
  if (global_preferences::isSwitchedOn(kDisableKey)) {
    platform::console::writeLine(kDisabledMessage);
    QVLog::appendLog(kDisabledMessage);
  } else {
    openReporter(*log);
  }
  return log;
}

// static
void QVBugReporter::chownPlist(const std::string& plistPath) {
  const auto components = path::components(plistPath);
  const auto users = std::ranges::find(components, "Users");
  if (users == components.end() || users + 1 == components.end()) return;
  const std::string& name = *(users + 1);
  if (!isUserName(name) || plistPath.starts_with('-')) return;
  if (platform::personal_files::isInPersonsFolder(plistPath)) return;
  QVTaskEx::runTask(kChown, std::vector<std::string>{name, plistPath}, kLongestChown);
}
