#pragma once

#include <string>

// Has the main thread write one line to the log, and waits until it has been queued there. The
// line is a format without arguments, as everything that goes to the log. Any thread.
void logOnMainThread(std::string line);
