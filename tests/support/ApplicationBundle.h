#pragma once

#include <string>
#include <string_view>

#include "tests/support/Sandbox.h"

namespace test {

// Makes an application bundle at `relative` in the sandbox, whose program is one of the test
// programs, and answers its path. `information` is put into the dictionary of its Info.plist,
// beside CFBundleExecutable. Everybody may read and run it.
std::string makeApplication(const Sandbox& sandbox, std::string_view relative,
                            std::string_view information = {},
                            std::string_view program = "OpenedApplication");

// The text of an Info.plist with that in its dictionary.
std::string infoPlist(std::string_view information);

}  // namespace test
