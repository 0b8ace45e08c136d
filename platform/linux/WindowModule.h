#pragma once

#include "platform/linux/window/WindowModule.h"

// The window module, opened when it is first needed. Main thread only.
namespace platform::window_module {

// The module with the display open, or null for the rest of the process's life when there is no
// display (any more); the first such answer says so on the console. The first call with a display
// maps the toolkit.
const QVWindowModule* open();

// Whether `open` has answered a module, and would now.
bool isOpen();

// Sets the function that is called when the display dies; `open` answers null by then.
void setDisplayLostHandler(void (*handler)());

}  // namespace platform::window_module
