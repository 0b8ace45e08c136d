#pragma once

#include <gtk/gtk.h>

// The application's icon, drawn: crisp at every scale and free of image loaders.
namespace window::application_icon {

// A new widget that shows the icon, `size` logical pixels wide and high.
GtkWidget* newWidget(int size);

// Gives a window the icon that title bars and task lists show.
void setFor(GtkWindow* window);

}  // namespace window::application_icon
