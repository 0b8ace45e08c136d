#include "platform/linux/window/Display.h"

#include <X11/Xlib.h>
#include <fcntl.h>
#include <gdk/gdkx.h>
#include <gtk/gtk.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace window::display {
namespace {

bool alive = false;
void (*tellLost)() = nullptr;

bool hasSessionBus() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS")) return *address != '\0';
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  std::error_code ignored;
  return runtime != nullptr && std::filesystem::is_socket(std::string(runtime) + "/bus", ignored);
}

// An environment variable for the toolkit's eyes only, unless the person has set it to something:
// the applications that we open later inherit the environment.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value)
      : name_(name), set_(std::getenv(name) == nullptr) {
    if (set_) g_setenv(name, value, TRUE);
  }
  ~ScopedVariable() {
    if (set_) g_unsetenv(name_);
  }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const char* const name_;
  const bool set_;
};

int ignoreInputOutputError(Display* /*display*/) {
  return 0;
}

// In place of Xlib's exit. The dead connection's descriptor is made one that is never readable, or
// whoever still polls it would be woken for ever.
void connectionLost(Display* display, void* /*data*/) {
  if (!alive) return;
  alive = false;
  const int quiet = ::eventfd(0, EFD_CLOEXEC);
  if (quiet >= 0) {
    ::dup3(quiet, ConnectionNumber(display), O_CLOEXEC);
    ::close(quiet);
  }
  tellLost();
}

// An update must not die of its window. The toolkit ends the process when the server goes away and
// when it answers a request with an error; here the first is survived and the second is ignored, by
// a trap for errors that stays open.
void surviveServer(GdkDisplay* gdk) {
  Display* display = gdk_x11_display_get_xdisplay(gdk);
  XSetIOErrorHandler(ignoreInputOutputError);
  XSetIOErrorExitHandler(display, connectionLost, nullptr);
  gdk_x11_display_error_trap_push(gdk);
}

}  // namespace

bool open(void (*lost)()) {
  tellLost = lost;
  // The toolkit would load OpenGL to choose a visual, which takes some 50 MB and is of no use here.
  const ScopedVariable noOpenGl("GDK_GL", "disable");
  // Without a session bus, to look for the accessibility bus would start a session bus of our own,
  // which nobody would ever end.
  std::optional<ScopedVariable> noBusLaunch;
  if (!hasSessionBus()) noBusLaunch.emplace("NO_AT_BRIDGE", "1");
  // The process keeps its locale: other threads run by now, and every text shown is our own.
  gtk_disable_setlocale();
  // The death of an X server can be survived, that of a Wayland compositor cannot.
  gdk_set_allowed_backends("x11,wayland");
  if (gtk_init_check(nullptr, nullptr) == FALSE) return false;
  GdkDisplay* gdk = gdk_display_get_default();
  if (GDK_IS_X11_DISPLAY(gdk)) surviveServer(gdk);
  alive = true;
  return true;
}

bool isAlive() {
  return alive;
}

}  // namespace window::display
