#pragma once

#include <string_view>

#include "platform/Format.h"

namespace platform::console {

// Writes one line, with a newline added, to the platform's console log: standard error and the
// system log. For what concerns the log itself and for pre-flight checks; the log file is QVLog's.
// A closed or full standard error is survived in silence. Any thread; may block on a full pipe.
void writeLine(std::string_view line);

// The same with a format and its arguments.
template <class... Arguments>
void log(std::string_view format, const Arguments&... arguments) {
  writeLine(formatted(format, arguments...));
}

// Writes `text` as it is to standard output and flushes it. A closed or full standard output is
// survived in silence. Any thread; may block on a full pipe.
void print(std::string_view text);

}  // namespace platform::console
