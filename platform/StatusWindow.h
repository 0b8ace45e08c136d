#pragma once

#include <string_view>

// The application's main window: a title, one line of status text and one progress indicator
// without a value. Main thread only. The window is made by the first call that needs it, in a
// process of the person's: for the superuser of the person at the console, and of nobody without
// one. No call waits for the display. Where none can be opened, and when it is lost, calls do
// nothing, which is said once on the console.
namespace platform::status_window {

// Shows the window in front of all others, with the keyboard. The person cannot close it.
void makeKeyAndOrderFront();

// Brings the whole application forward, over other applications.
void activateApplication();

// Sets the indicator moving, in a way that does not depend on how busy other threads are.
void startAnimation();

// Replaces the status line; bytes that are not UTF-8 are shown as U+FFFD.
void setStatusText(std::string_view text);

// Takes the window off the screen.
void orderOut();

}  // namespace platform::status_window
