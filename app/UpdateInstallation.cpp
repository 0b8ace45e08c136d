#include "app/UpdateInstallation.h"

#include <utility>

#include "Shared/QVAuthorization.h"
#include "Shared/QVFileManager.h"
#include "Shared/QVLocalPaths.h"
#include "Shared/QVTaskEx.h"
#include "Shared/QVTaskNotification.h"
#include "app/AlertOfRun.h"
#include "app/LogOnMainThread.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/InhibitorLock.h"
#include "platform/MainThread.h"
#include "platform/Path.h"
#include "platform/ProcessInfo.h"
#include "platform/Workspace.h"

using platform::clock::Seconds;
using platform::main_thread::Wait;

namespace {

constexpr char kKillTool[] = "/usr/bin/killall";
constexpr char kDiskImageTool[] = "/usr/bin/hdiutil";
constexpr const char* kUpdaterProcesses[] = {"Quorvale Software Update",
                                             "Quorvale Software Updater"};
constexpr char kFailureTitle[] = "Unable to install";

constexpr Seconds kUpdaterGrace(3.0);
constexpr Seconds kPrivilegedToolGrace(2.0);
constexpr Seconds kPauseBeforeRegistration(1.0);
constexpr Seconds kDetachLimit(5.0);

// Succeeds only for a process that has held the superuser's rights all along.
void takeSuperuserIdentity() {
  static_cast<void>(platform::process_info::setUserId(platform::process_info::kSuperuser));
}

}  // namespace

UpdateInstallation::UpdateInstallation(UpdateDisplay& display, UpdateArguments arguments)
    : display_(display),
      arguments_(std::move(arguments)),
      source_(arguments_.source.value()),
      destination_(arguments_.destination.value()),
      destinationFolder_(platform::path::deletingLastComponent(destination_)) {}

void UpdateInstallation::run() {
  waitForUpdaterToClose();
  killUpdater();
  if (sourceExists() && !replaceBundle()) reportFailedCopy();
}

// A machine that slept or shut down in here would be left without the application, or with a part
// of it. While an alert waits for somebody it may do either.
bool UpdateInstallation::replaceBundle() const {
  const platform::InhibitorLock untilReplaced("An application is being updated.");
  if (platform::file_system::exists(destination_)) trashOldBundle();
  if (!copyNewBundle()) return false;
  makeNewBundleKnown();
  relaunch();
  detachDiskImage();
  return true;
}

void UpdateInstallation::waitForUpdaterToClose() const {
  logOnMainThread("Waiting for software updater to close naturally...");
  platform::clock::spin(kUpdaterGrace);
}

void UpdateInstallation::killUpdater() const {
  logOnMainThread("Killing software updater instances...");
  for (const char* process : kUpdaterProcesses) {
    static_cast<void>(QVTaskEx::runTask(kKillTool, std::vector<std::string>{process}));
  }
}

bool UpdateInstallation::sourceExists() const {
  if (platform::file_system::exists(source_)) return true;
  logOnMainThread("Source file does not exist");
  if (!arguments_.silent) showAlertOfRun(kFailureTitle, "Source file does not exist.");
  return false;
}

void UpdateInstallation::trashOldBundle() const {
  logOnMainThread("Trashing old application...");
  const std::string trash = QVLocalPaths::trashDirectory().value_or(std::string());
  const std::string name = platform::path::lastComponent(destination_);
  if (platform::workspace::recycle(destinationFolder_, trash, {name})) return;
  trashOldBundleWithRights();
}

void UpdateInstallation::trashOldBundleWithRights() const {
  takeSuperuserIdentity();
  logOnMainThread("Auth trashing old application...");
  static_cast<void>(QVAuthorization::sharedController().authTrashFile(destination_, true));
  platform::clock::spin(kPrivilegedToolGrace);
}

// The target of the ordinary copy is the folder itself. It refuses a folder that exists, so the
// ordinary copy succeeds only where there is none yet, and then the folder becomes the bundle; the
// usual road is the copy with rights, which puts the bundle into the folder under its own name.
bool UpdateInstallation::copyNewBundle() const {
  logOnMainThread("Preparing to copy files...");
  reportProgress();
  return platform::file_system::copy(source_, destinationFolder_).ok() || copyNewBundleWithRights();
}

bool UpdateInstallation::copyNewBundleWithRights() const {
  takeSuperuserIdentity();
  if (!QVAuthorization::sharedController().authCopyFile(source_, destinationFolder_)) return false;
  platform::clock::spin(kPrivilegedToolGrace);
  return true;
}

void UpdateInstallation::reportFailedCopy() const {
  logOnMainThread("The installer was unable to copy the file to its destination");
  showAlertOfRun(kFailureTitle, "The installer was unable to copy the file to its destination.");
}

void UpdateInstallation::makeNewBundleKnown() const {
  reportProgress();
  platform::clock::sleep(kPauseBeforeRegistration);
  static_cast<void>(QVFileManager::registerApplicationWithLaunchServices(destination_));
  static_cast<void>(QVFileManager::touchFile(destination_));
}

void UpdateInstallation::relaunch() const {
  using platform::main_thread::perform;
  if (!arguments_.silent) {
    perform([this] { display_.updateStatusText("Relaunching..."); }, Wait::untilDone);
  }
  logOnMainThread("File copy successful.");
  if (arguments_.silent) return;
  logOnMainThread("Launching app...");
  static_cast<void>(platform::workspace::open(destination_));
  perform([this] { display_.hideMainWindow(); }, Wait::untilDone);
}

void UpdateInstallation::detachDiskImage() const {
  if (!arguments_.mountPath) return;
  logOnMainThread("Cleaning up...");
  QVTaskEx::runTask(kDiskImageTool,
                    std::vector<std::string>{"detach", *arguments_.mountPath, "-force"},
                    kDetachLimit);
}

void UpdateInstallation::reportProgress() const {
  if (arguments_.silent) QVTaskNotification::postIncrementProgress();
}
