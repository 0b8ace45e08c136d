#include "app/AppController.h"

#include "Shared/QVBugReporter.h"
#include "Shared/QVException.h"
#include "Shared/QVLog.h"
#include "Shared/QVTaskNotification.h"
#include "app/AlertOfRun.h"
#include "app/LogOnMainThread.h"
#include "app/UpdateInstallation.h"
#include "platform/Clock.h"
#include "platform/DetachedThread.h"
#include "platform/Format.h"
#include "platform/MainThread.h"
#include "platform/StatusWindow.h"
#include "platform/UserDefaults.h"

using platform::clock::Seconds;
using platform::main_thread::perform;
using platform::main_thread::Wait;

namespace {

constexpr Seconds kPauseAfterFinishNotification(1.0);

}  // namespace

void AppController::applicationDidFinishLaunching() {
  try {
    QVBugReporter::startBugReporter();
    QVLog::createNewLog();
    if (!platform::user_defaults::boolean("silent")) showMainWindow();
    platform::detachThread([this] { beginUpdate(); });
  } catch (const platform::Exception& exception) {
    QVException::logException(exception, "-[AppController applicationDidFinishLaunching:]");
  }
}

void AppController::showMainWindow() {
  platform::status_window::makeKeyAndOrderFront();
  platform::status_window::activateApplication();
  platform::status_window::startAnimation();
}

// The lock is this call's own and excludes nobody, as in the two window methods below: what keeps
// the run in order is that everything shared is done by the main thread while the worker waits.
void AppController::beginUpdate() {
  std::mutex callLock;
  callLock.lock();
  platform::application::ignoreTerminationRequests();
  const UpdateArguments arguments = UpdateArguments::fromUserDefaults();
  logOnMainThread("Beginning installation...");
  try {
    install(arguments);
  } catch (const platform::Exception& exception) {
    report(exception);
  } catch (...) {
    finish(arguments.silent, callLock);
    throw;
  }
  finish(arguments.silent, callLock);
}

void AppController::install(const UpdateArguments& arguments) {
  QVLog::appendLog("Source path: %@", arguments.source);
  QVLog::appendLog("Destination path: %@", arguments.destination);
  QVLog::appendLog("Mount path: %@", arguments.mountPath);
  QVLog::appendLog("Silent: %i", static_cast<int>(arguments.silent));
  if (!arguments.nameTwoBundles()) {
    logOnMainThread("Invalid arguments");
    return;
  }
  logOnMainThread("Path is valid.");
  UpdateInstallation(*this, arguments).run();
}

void AppController::report(const platform::Exception& exception) {
  QVException::logException(exception, "-[AppController beginUpdate]");
  showAlertOfRun("Error: unable to install update.",
                 platform::formatted("Exception in processData. %@ - %@", exception.name(),
                                     exception.reason()));
}

void AppController::finish(bool silent, std::mutex& callLock) {
  if (silent) {
    perform([] { QVTaskNotification::postTaskFinished(); }, Wait::untilDone);
    platform::clock::sleep(kPauseAfterFinishNotification);
  }
  callLock.unlock();
  logOnMainThread("Terminating self...");
  perform([] { QVBugReporter::stopBugReporter(); }, Wait::untilDone);
  platform::application::terminate();
}

void AppController::hideMainWindow() {
  std::mutex callLock;
  const std::lock_guard guard(callLock);
  platform::status_window::orderOut();
}

void AppController::updateStatusText(const std::string& text) {
  std::mutex callLock;
  const std::lock_guard guard(callLock);
  platform::status_window::setStatusText(text);
}
