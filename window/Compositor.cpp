#include <dlfcn.h>
#include <unistd.h>

// Stands before the library's own function of this name for the toolkit, which finds this program's
// names first. Showing a window, the toolkit waits here for the compositor's answer, again and
// again when the connection is broken, and would use up a processor by that.
extern "C" __attribute__((visibility("default"))) int wl_display_dispatch_queue(
    struct wl_display* display, struct wl_event_queue* queue) {
  using Function = int (*)(wl_display*, wl_event_queue*);
  static const auto real =
      reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "wl_display_dispatch_queue"));
  const int count = real(display, queue);
  if (count < 0) ::_exit(1);
  return count;
}
