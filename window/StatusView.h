#pragma once

#include <gtk/gtk.h>

// The status window, made when it is first needed, with a live display.
namespace window::status_view {

void show();
void activate();
void startAnimation();
void setStatus(const char* status);
void hide();

// The window while it is on the screen, else null.
GtkWindow* visibleWindow();

}  // namespace window::status_view
