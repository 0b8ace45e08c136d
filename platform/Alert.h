#pragma once

#include <string_view>

namespace platform::alert {

// Shows an alert with a title, a message and one default button, and waits until the person has
// dismissed it by the button, Return or Escape. `messageFormat` is a format without arguments (see
// Format.h): a percent sign in it is read as a directive; one that is longer than any screen is
// shown cut. Any thread: the alert is shown by way of the main thread, whose loop goes on
// meanwhile. Where it can be seen by nobody the text goes to standard error and the system log and
// the call returns: without a display at once, when the display or the program that shows the alert
// ends then, and when the display has not answered for ten seconds, before the alert appears or
// while it is shown. A display that answers is waited for as long as the person takes. The call
// also returns when the main loop ends.
void run(std::string_view title, std::string_view messageFormat);

}  // namespace platform::alert
