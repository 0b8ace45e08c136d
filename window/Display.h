#pragma once

// The toolkit's connection to the display. Its death ends this process, whose end is what the
// application then sees.
namespace window::display {

// Initialises the toolkit; false without a display. Blocks for as long as a display that is there
// does not answer.
bool open();

// Sends the display what it has not been sent yet.
void flush();

// Asks the display for an answer and waits for it.
void roundTrip();

}  // namespace window::display
