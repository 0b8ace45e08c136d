#include "window/Display.h"

#include <gdk/gdkx.h>
#include <gtk/gtk.h>
#include <unistd.h>

namespace window::display {
namespace {

bool hasSessionBus() {
  const char* address = g_getenv("DBUS_SESSION_BUS_ADDRESS");
  if (address != nullptr && *address != '\0') return true;
  const char* runtimeFolder = g_getenv("XDG_RUNTIME_DIR");
  if (runtimeFolder == nullptr || *runtimeFolder != '/') return false;
  char* bus = g_build_filename(runtimeFolder, "bus", nullptr);
  const bool exists = ::access(bus, F_OK) == 0;
  g_free(bus);
  return exists;
}

// What the toolkit reads, unless the person has set it to something.
void setEnvironment() {
  // It would load OpenGL to choose a visual, which takes some 50 MB and is of no use here.
  g_setenv("GDK_GL", "disable", FALSE);
  // Without a session bus, to look for the accessibility bus would start a session bus of our own,
  // which nobody would ever end.
  if (!hasSessionBus()) g_setenv("NO_AT_BRIDGE", "1", FALSE);
}

}  // namespace

bool open() {
  setEnvironment();
  // Every text shown is our own, so that nothing is to be arranged for another language.
  gtk_disable_setlocale();
  // Only an X server can be told when to bring a window forward.
  gdk_set_allowed_backends("x11,wayland");
  if (gtk_init_check(nullptr, nullptr) == FALSE) return false;
  GdkDisplay* display = gdk_display_get_default();
  // The toolkit ends the process when the server refuses a request, unless there is a trap for
  // errors. This one stays open.
  if (GDK_IS_X11_DISPLAY(display)) gdk_x11_display_error_trap_push(display);
  return true;
}

void flush() {
  gdk_display_flush(gdk_display_get_default());
}

void roundTrip() {
  gdk_display_sync(gdk_display_get_default());
}

}  // namespace window::display
