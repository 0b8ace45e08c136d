#pragma once

#include <gtk/gtk.h>

#include <string>

namespace host {

// The window of the host: what is being done, how far it is, and a button that closes it once
// nothing more will happen. On the thread of the main loop.
class HostWindow {
 public:
  HostWindow();

  void showStatus(const std::string& text);
  // 0 to 1.
  void showProgress(double fraction);
  // The last status: the window may be closed now.
  void showEnd(const std::string& text);

 private:
  GtkWidget* window_;
  GtkWidget* status_;
  GtkWidget* progress_;
  GtkWidget* close_;
};

}  // namespace host
