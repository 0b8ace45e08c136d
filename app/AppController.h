#pragma once

#include <mutex>
#include <string>

#include "app/UpdateArguments.h"
#include "app/UpdateDisplay.h"
#include "platform/Application.h"
#include "platform/Exception.h"

// The application's delegate: starts the crash check, the log, the window and the worker thread,
// and is the frame around the installation, which always ends in the application's termination.
//
// There is no exit status that tells success from failure: the outcome is in the log, in the
// alerts and, in a silent run, in what the host application is told.
class AppController : public platform::ApplicationDelegate, public UpdateDisplay {
 public:
  // Main thread, once the main loop runs. After a platform::Exception in here, which is logged, the
  // application stays open without a worker; other exceptions pass on.
  void applicationDidFinishLaunching() override;

  // The worker: reads and checks the arguments, installs the update, reports a platform::Exception
  // in the log and in an alert, and terminates the application. From its beginning on nothing else
  // that asks for the application's end is heard. Blocks for several seconds and does not return;
  // main thread excluded.
  void beginUpdate();

  // Take the window off the screen; replace its status line. Main thread.
  void hideMainWindow() override;
  void updateStatusText(const std::string& text) override;

 private:
  void showMainWindow();
  void install(const UpdateArguments& arguments);
  void report(const platform::Exception& exception);
  void finish(bool silent, std::mutex& callLock);
};
