#pragma once

// What the application asks for over the socket, carried out, and the person's answers.
namespace window::conversation {

// Tells the application that the display is open and from then on does as it asks, in the toolkit's
// main loop. When the application has gone, or sends what it never would, this process ends.
void begin();

}  // namespace window::conversation
