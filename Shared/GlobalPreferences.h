#pragma once

#include <string>

// The maker's global preferences, com.quorvale.global.plist in the user's Preferences folder.
namespace global_preferences {

// Whether a switch is on: the text "1" or a number equal to true. A missing or broken file has
// none. Any thread; looks at the disk.
bool isSwitchedOn(const std::string& key);

}  // namespace global_preferences
