#pragma once

#include <string>
#include <string_view>

namespace posix {

// A text for one line of the system's log: control characters, the backslash and what is not ASCII
// as "\xNN", so that a file's name can neither begin another line nor pass for one; at most 512
// bytes of the text, then "...".
std::string escaped(std::string_view text);

}  // namespace posix
