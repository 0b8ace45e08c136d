#pragma once

#include <optional>
#include <string>
#include <vector>

// Where the log files of an application are, and how they move up: <appName>.1.log is the current
// one, .2 to .5 are older ones. Any thread; blocks for as long as the disk takes.
namespace log_files {

// The folder that is checked, made, rotated and listed: in the user's library, also as superuser.
// None when the user has no library.
std::optional<std::string> folder();

// The file that is written to: in folder(), but as superuser in the local library, so that the
// superuser writes to nothing that a user could have prepared. None when there is no such library.
std::optional<std::string> current(const std::optional<std::string>& appName);

// The existing files of folder(), the newest first.
std::vector<std::string> existing(const std::optional<std::string>& appName);

// Removes the fifth file and moves 4 to 5, 3 to 4, 2 to 3, 1 to 2, as far as they exist; a gap
// stays one. Stops at a move that fails, prints the two paths and answers false.
bool rotate(const std::string& folder, const std::optional<std::string>& appName);

}  // namespace log_files
