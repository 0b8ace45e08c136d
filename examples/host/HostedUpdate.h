#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

#include "examples/host/CallbackObject.h"
#include "examples/host/HostWindow.h"

namespace host {

// One silent run of the helper, shown in the window as the helper tells it. On the thread of the
// main loop.
class HostedUpdate {
 public:
  // `command` is the helper's path and its arguments without -silent.
  HostedUpdate(HostWindow& window, std::vector<std::string> command);

 private:
  void start();
  void showStep();
  void showFinish();
  static void helperEnded(GObject* helper, GAsyncResult* result, gpointer self);
  void end(const std::string& text);

  HostWindow& window_;
  std::vector<std::string> command_;
  int steps_ = 0;
  std::string error_;
  bool ended_ = false;
  const CallbackObject object_;
};

}  // namespace host
