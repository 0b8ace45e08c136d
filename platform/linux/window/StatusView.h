#pragma once

#include <gtk/gtk.h>

// The status window. Main thread, with a live display; see QVWindowModule.
namespace window::status_view {

void make(const char* title, const char* heading, const char* status);
void show();
void activate();
void startAnimation();
void setStatus(const char* status);
void hide();

// The window while it is on the screen, else null.
GtkWindow* visibleWindow();

}  // namespace window::status_view
