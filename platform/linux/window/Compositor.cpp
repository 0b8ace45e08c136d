#include "platform/linux/window/Compositor.h"

#include <dlfcn.h>
#include <gdk/gdkwayland.h>
#include <poll.h>
#include <wayland-client-core.h>

#include <cstring>

namespace window::compositor {
namespace {

// Both null until the display is open.
wl_display* connection = nullptr;
void (*leaveToolkit)() = nullptr;

bool isWhole(wl_display* display) {
  if (wl_display_get_error(display) != 0) return false;
  pollfd socket = {wl_display_get_fd(display), POLLOUT, 0};
  return ::poll(&socket, 1, 0) == 1 && socket.revents == POLLOUT;
}

bool isOfToolkit(const GLogField& field) {
  return std::strcmp(field.key, "GLIB_DOMAIN") == 0 &&
         std::strcmp(static_cast<const char*>(field.value), "Gdk") == 0;
}

// The toolkit ends the process when it cannot read or write, with no way to have it do otherwise
// but for one: before that it says why. What it says on a broken connection is its last word.
GLogWriterOutput listen(GLogLevelFlags level, const GLogField* fields, gsize count,
                        gpointer /*data*/) {
  bool saidByToolkit = false;
  for (gsize i = 0; i < count; ++i) saidByToolkit = saidByToolkit || isOfToolkit(fields[i]);
  if (saidByToolkit && level == G_LOG_LEVEL_MESSAGE && !isWhole(connection)) leaveToolkit();
  return g_log_writer_default(level, fields, count, nullptr);
}

// Requests that nobody takes any more.
void ignore(const char* /*format*/, va_list /*arguments*/) {}

}  // namespace

void survive(GdkDisplay* display, void (*leave)()) {
  connection = gdk_wayland_display_get_wl_display(display);
  leaveToolkit = leave;
  wl_log_set_handler_client(ignore);
  g_log_set_writer_func(listen, nullptr, nullptr);
}

}  // namespace window::compositor

// Stands before the library's own function of this name for the toolkit, which is loaded for the
// sake of this module and so finds the module's names first. Showing a window, it waits here for
// the compositor's answer, and it would do so for ever on a broken connection.
extern "C" __attribute__((visibility("default"))) int wl_display_dispatch_queue(
    wl_display* display, wl_event_queue* queue) {
  using Function = int (*)(wl_display*, wl_event_queue*);
  static const auto real =
      reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "wl_display_dispatch_queue"));
  const int count = real(display, queue);
  if (count < 0 && display == window::compositor::connection) window::compositor::leaveToolkit();
  return count;
}
