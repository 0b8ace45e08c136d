#include "platform/linux/loop/WindowModule.h"

#include <dlfcn.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/Bundle.h"
#include "platform/Console.h"
#include "platform/linux/loop/MainLoop.h"

namespace platform::window_module {
namespace {

void (*displayLostHandler)() = nullptr;

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

bool hasSessionBus() {
  if (isSet("DBUS_SESSION_BUS_ADDRESS")) return true;
  const char* runtimeFolder = std::getenv("XDG_RUNTIME_DIR");
  std::error_code ignored;
  return runtimeFolder != nullptr && *runtimeFolder == '/' &&
         std::filesystem::is_socket(std::filesystem::path(runtimeFolder) / "bus", ignored);
}

// An environment variable for the toolkit's eyes only, unless the person has set it to something:
// the applications that we open later inherit the environment.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value)
      : name_(name), set_(std::getenv(name) == nullptr) {
    if (set_) ::setenv(name, value, 1);
  }
  ~ScopedVariable() {
    if (set_) ::unsetenv(name_);
  }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const char* const name_;
  const bool set_;
};

// Never closed again: the toolkit cannot be unloaded.
const QVWindowModule* load() {
  const auto path = Bundle::main().auxiliaryPath("QVWindow.so");
  void* library = path ? ::dlopen(path->c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
  void* symbol = library != nullptr ? ::dlsym(library, kQVWindowModuleSymbol) : nullptr;
  if (symbol != nullptr) return reinterpret_cast<QVWindowModuleFunction>(symbol)();
  console::log("The window module cannot be opened: %@", path ? ::dlerror() : "it is missing");
  return nullptr;
}

void tellDisplayLost() {
  console::writeLine("The display was lost; going on without a window.");
  if (displayLostHandler != nullptr) displayLostHandler();
}

bool openDisplay(const QVWindowModule& module) {
  // The toolkit would load OpenGL to choose a visual, which takes some 50 MB and is of no use here.
  const ScopedVariable noOpenGl("GDK_GL", "disable");
  // Without a session bus, to look for the accessibility bus would start a session bus of our own,
  // which nobody would ever end.
  std::optional<ScopedVariable> noBusLaunch;
  if (!hasSessionBus()) noBusLaunch.emplace("NO_AT_BRIDGE", "1");
  bool opened = false;
  main_loop::callToolkit([&] { opened = module.openDisplay(main_loop::leaveToolkit); });
  return opened;
}

const QVWindowModule* open() {
  if (isSet("DISPLAY") || isSet("WAYLAND_DISPLAY")) {
    main_loop::setToolkitLeftHandler(tellDisplayLost);
    const QVWindowModule* module = load();
    if (module != nullptr && openDisplay(*module)) return module;
  }
  console::writeLine("No display can be opened; going on without a window.");
  return nullptr;
}

}  // namespace

bool call(const std::function<void(const QVWindowModule&)>& use) {
  static const QVWindowModule* const module = open();
  return module != nullptr && main_loop::callToolkit([&use] { use(*module); });
}

void setDisplayLostHandler(void (*handler)()) {
  displayLostHandler = handler;
}

}  // namespace platform::window_module
