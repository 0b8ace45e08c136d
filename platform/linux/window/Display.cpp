#include "platform/linux/window/Display.h"

#include <X11/Xlib.h>
#include <gdk/gdkwayland.h>
#include <gdk/gdkx.h>
#include <gtk/gtk.h>

#include "platform/linux/window/Compositor.h"

namespace window::display {
namespace {

void (*leaveToolkit)() = nullptr;

int connectionLost(Display* /*display*/) {
  leaveToolkit();
  return 0;
}

// An update must not die of its window, but the toolkit ends the process when the X server goes
// away. Xlib ends it too if its handler returns, and where requests go nowhere neither survives for
// long: so the handler leaves them both. The toolkit sets its own when its class for displays is
// made, which happens once; ours is set after that.
void surviveServer() {
  g_type_class_unref(g_type_class_ref(GDK_TYPE_X11_DISPLAY));
  XSetIOErrorHandler(connectionLost);
}

}  // namespace

bool open(void (*leave)()) {
  leaveToolkit = leave;
  // The process keeps its locale: other threads run by now, and every text shown is our own.
  gtk_disable_setlocale();
  // Only an X server can be told when to bring a window forward.
  gdk_set_allowed_backends("x11,wayland");
  surviveServer();
  if (gtk_init_check(nullptr, nullptr) == FALSE) return false;
  GdkDisplay* display = gdk_display_get_default();
  // The toolkit also ends the process when the server refuses a request, unless there is a trap for
  // errors. This one stays open.
  if (GDK_IS_X11_DISPLAY(display)) gdk_x11_display_error_trap_push(display);
  if (GDK_IS_WAYLAND_DISPLAY(display)) compositor::survive(display, leave);
  return true;
}

}  // namespace window::display
