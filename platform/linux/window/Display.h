#pragma once

// The toolkit's connection to the display.
namespace window::display {

// Initialises the toolkit; false without a display. See QVWindowModule::openDisplay.
bool open(void (*leave)());

}  // namespace window::display
