#pragma once

#include <string_view>

namespace platform::alert {

// Shows an alert with a title, a message and one default button, and waits until the person has
// dismissed it by the button, Return or Escape. `messageFormat` is a format without arguments (see
// Format.h): a percent sign in it is read as a directive. Any thread: the alert is shown by the
// main thread, whose loop goes on meanwhile. Without a display the text goes to standard error and
// the system log and the call returns at once; it also returns when the main loop ends.
void run(std::string_view title, std::string_view messageFormat);

}  // namespace platform::alert
