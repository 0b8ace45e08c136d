#include "platform/linux/ToolEquivalents.h"

#include <unistd.h>

#include <string_view>

namespace platform {
namespace {

bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

constexpr std::string_view kChownPlaces[] = {"/usr/bin/chown", "/bin/chown"};

}  // namespace

ToolInvocation resolvedTool(const std::string& namedPath,
                            const std::vector<std::string>& arguments) {
  if (namedPath == "/usr/sbin/chown" && !exists(namedPath)) {
    for (const std::string_view place : kChownPlaces) {
      if (exists(std::string(place))) return {std::string(place), arguments};
    }
  }
  return {namedPath, arguments};
}

}  // namespace platform
