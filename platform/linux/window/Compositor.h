#pragma once

#include <gtk/gtk.h>

// The Wayland compositor, whose death is to be survived.
namespace window::compositor {

// From now on calls `leave`, which must not return, in place of the toolkit's ending the process
// when the connection of this display is lost. Call once in a process.
void survive(GdkDisplay* display, void (*leave)());

}  // namespace window::compositor
