#pragma once

#include <functional>

#include "platform/linux/window/WindowModule.h"

// The window module, opened when it is first needed. Main thread only.
namespace platform::window_module {

// Calls `use` with the module, its display open, and answers whether that was possible: false where
// there is no display, and once it has died, be it during this call, which then ends at once: `use`
// must have nothing to destroy. The first time that there is no display is said on the console. The
// first call with a display maps the toolkit.
bool call(const std::function<void(const QVWindowModule&)>& use);

// Sets the function that is called when the display has died.
void setDisplayLostHandler(void (*handler)());

}  // namespace platform::window_module
