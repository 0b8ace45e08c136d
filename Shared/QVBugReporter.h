#pragma once

#include <functional>
#include <optional>
#include <string>

// Who wants to be told of a crash. An unset function is not called.
struct QVBugReporterDelegate {
  // Given the crash log's full path, on the main thread.
  std::function<void(const std::string& log)> applicationDidCrashWithLog;
};

// Notices at start-up that the previous run crashed, and opens the bug-reporting application on the
// crash log: the previous run's start is recorded, its end is not or lies before, and a crash log
// of the application is newer than that start.
//
// `appName` is the name that crash logs begin with, none for the main bundle's CFBundleName.
// `plistPath` is the full path of the property list with the record, none for the application's own
// user defaults. Nothing here raises or answers a failure: what cannot be read counts as absent,
// and what cannot be written is not. Meant for the main thread; blocks for the disk, as long as
// another process writes the record (at most two seconds) and, for a record in a home folder below
// Users, for chown (at most five seconds).
class QVBugReporter {
 public:
  using Name = std::optional<std::string>;
  using Delegate = std::optional<QVBugReporterDelegate>;

  QVBugReporter() = delete;

  // Checks for a crash of the previous run, tells the delegate of it without waiting, and records
  // the start of this run.
  static void startBugReporter();
  static void startBugReporterWithDelegate(const Delegate& delegate);
  static void startBugReporter(const Name& appName, const Name& plistPath);
  static void startBugReporter(const Name& appName, const Name& plistPath,
                               const Delegate& delegate);

  // Records that this run ends well.
  static void stopBugReporter();
  static void stopBugReporter(const Name& plistPath);

  // The crash log of the previous run; none when it ended well, was never started or left no log.
  // Opens the bug-reporting application on the log, unless "disable-crash-reporter" is switched on
  // in com.quorvale.global.plist of the user's preferences: "Bug Reporter.app" in the main bundle's
  // resources, else the application com.quorvale.BugReporter. Whether that worked is not asked.
  static std::optional<std::string> checkForCrashes();
  static std::optional<std::string> checkForCrashes(const Name& appName, const Name& plistPath);

  // Gives a file below a folder "Users" to the user that the next component names; the group stays.
  // A component that is no user name but an option or a group to chown is passed over. The
  // superuser gives away nothing in a place that is not the superuser's alone, where a link may
  // have taken the file's place: a record there was written as the person and is that person's
  // already.
  static void chownPlist(const std::string& path);
};
