#include "platform/linux/WindowModule.h"

#include <dlfcn.h>

#include <cstdlib>
#include <optional>

#include "platform/Bundle.h"
#include "platform/Console.h"
#include "platform/linux/MainLoop.h"

namespace platform::window_module {
namespace {

// None until the module was first asked for.
std::optional<const QVWindowModule*> module;
void (*displayLostHandler)() = nullptr;

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

// Never closed again: the toolkit cannot be unloaded.
const QVWindowModule* load() {
  const auto path = Bundle::main().auxiliaryPath("QVWindow.so");
  void* library = path ? ::dlopen(path->c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
  void* symbol = library != nullptr ? ::dlsym(library, kQVWindowModuleSymbol) : nullptr;
  if (symbol != nullptr) return reinterpret_cast<QVWindowModuleFunction>(symbol)();
  console::log("The window module cannot be opened: %@", path ? ::dlerror() : "it is missing");
  return nullptr;
}

void displayLost() {
  module = nullptr;
  main_loop::abandonToolkit();
  console::writeLine("The display was lost; going on without a window.");
  if (displayLostHandler != nullptr) displayLostHandler();
}

const QVWindowModule* openNow() {
  if (isSet("DISPLAY") || isSet("WAYLAND_DISPLAY")) {
    const QVWindowModule* loaded = load();
    if (loaded != nullptr && loaded->openDisplay(displayLost)) return loaded;
  }
  console::writeLine("No display can be opened; going on without a window.");
  return nullptr;
}

}  // namespace

const QVWindowModule* open() {
  if (!module) module = openNow();
  return *module;
}

bool isOpen() {
  return module && *module != nullptr;
}

void setDisplayLostHandler(void (*handler)()) {
  displayLostHandler = handler;
}

}  // namespace platform::window_module
