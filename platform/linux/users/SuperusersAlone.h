#pragma once

#include <string>

namespace platform {

// Whether nobody but the superuser can change the item at an absolute path, anything below it, or
// the way to it. Links below it do not count. Any thread; blocks for the disk.
bool isSuperusersAlone(const std::string& path);

}  // namespace platform
