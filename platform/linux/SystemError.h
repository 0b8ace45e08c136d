#pragma once

#include <string>
#include <string_view>

#include "platform/Status.h"

namespace platform {

// The one place where an error number of the system becomes text: the system's own description in
// English, whatever the process's locale. Thread-safe.
std::string errorText(int error);

// A failure with that number and text; 0 gives success. With `subject`, the item that it is about,
// the text is "<subject>: <description>".
Status statusFromErrno(int error);
Status statusFromErrno(int error, std::string_view subject);

}  // namespace platform
