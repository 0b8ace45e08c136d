#pragma once

#include <map>
#include <string>

#include "platform/linux/users/UserDatabase.h"

namespace session_helper {

using Environment = std::map<std::string, std::string>;

using Person = platform::user_database::User;

// What a program needs to find the person's screen, bus, language and way of typing, and nothing
// else: from this process's environment, and what is missing there from the record of the person's
// login. `own` says that this process is the person's; otherwise its path and folders are not
// passed on.
Environment sessionEnvironment(const Person& person, bool own);

}  // namespace session_helper
