#pragma once

#include <string>

#include "app/UpdateArguments.h"
#include "app/UpdateDisplay.h"

// The installation itself: waits for the updater to close, replaces the old bundle by the new one,
// makes the new one known, reopens it and detaches the disk image.
//
// The pauses are fixed lengths of time, spent whether or not what they wait for has happened, and
// the results of most steps are ignored: only a missing source and a failed copy end the run early.
// Nothing is undone on failure; the old bundle stays whole in the Trash.
class UpdateInstallation {
 public:
  // `arguments` must name two bundles; `display` must outlive this.
  UpdateInstallation(UpdateDisplay& display, UpdateArguments arguments);

  // Runs all steps, and answers when they are done or have given up. On a thread other than the
  // main one, which must be serving its loop; blocks for several seconds. Raises what the platform
  // services raise.
  void run();

 private:
  void waitForUpdaterToClose() const;
  void killUpdater() const;
  bool sourceExists() const;
  bool replaceBundle() const;
  void trashOldBundle() const;
  void trashOldBundleWithRights() const;
  bool copyNewBundle() const;
  bool copyNewBundleWithRights() const;
  void reportFailedCopy() const;
  void makeNewBundleKnown() const;
  void relaunch() const;
  void detachDiskImage() const;
  void reportProgress() const;

  UpdateDisplay& display_;
  const UpdateArguments arguments_;
  const std::string source_;
  const std::string destination_;
  // The folder that holds the destination. It is also the target of both copies, see copyNewBundle.
  const std::string destinationFolder_;
};
