#pragma once

#include <gtk/gtk.h>

#include <string>

#include "examples/bugreporter/CrashLogText.h"

namespace bug_reporter {

// The window that shows a crash log: what crashed, where the log is, what it says, a button that
// copies it and one that closes the window, as Escape does. Closing it ends the main loop. On the
// thread of the main loop.
class ReporterWindow {
 public:
  explicit ReporterWindow(const CrashLogText& log);

 private:
  GtkWidget* makeButtons();
  static void copy(GtkButton* button, gpointer self);
  static gboolean keyPressed(GtkWidget* window, GdkEventKey* key, gpointer);

  const std::string text_;
  GtkWidget* const window_;
};

}  // namespace bug_reporter
