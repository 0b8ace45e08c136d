// DisplaySettings <module>: makes the X server of $DISPLAY tell the toolkits of its clients to load
// a module, as whoever may use the server can; prints "ready" and does so until it is ended.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

void put(std::string& settings, std::uint32_t number) {
  settings.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void putText(std::string& settings, const std::string& text) {
  settings += text;
  settings.append((4 - text.size() % 4) % 4, '\0');
}

// One setting, a text, in the form that XSETTINGS has.
std::string settingsWith(const std::string& name, const std::string& value) {
  std::string settings(4, '\0');  // the byte order: the least significant first
  put(settings, 1);
  put(settings, 1);
  settings += {'\1', '\0', static_cast<char>(name.size()), '\0'};
  putText(settings, name);
  put(settings, 1);
  put(settings, static_cast<std::uint32_t>(value.size()));
  putText(settings, value);
  return settings;
}

}  // namespace

int main(int argc, char** argv) {
  Display* display = argc == 2 ? XOpenDisplay(nullptr) : nullptr;
  if (display == nullptr) return 1;
  const std::string settings = settingsWith("Gtk/Modules", argv[1]);
  const Window owner =
      XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
  const Atom property = XInternAtom(display, "_XSETTINGS_SETTINGS", False);
  XChangeProperty(display, owner, property, property, 8, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(settings.data()),
                  static_cast<int>(settings.size()));
  XSetSelectionOwner(display, XInternAtom(display, "_XSETTINGS_S0", False), owner, CurrentTime);
  XSync(display, False);
  std::puts("ready");
  std::fflush(stdout);
  for (XEvent event;;) XNextEvent(display, &event);
}
