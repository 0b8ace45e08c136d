#include "tests/support/MountPoint.h"

#include <sys/stat.h>

#include <filesystem>

namespace test {

bool isMountPoint(const std::string& path) {
  struct stat inside = {};
  struct stat above = {};
  const std::string parent = std::filesystem::path(path).parent_path();
  return ::stat(path.c_str(), &inside) == 0 && ::stat(parent.c_str(), &above) == 0 &&
         inside.st_dev != above.st_dev;
}

}  // namespace test
