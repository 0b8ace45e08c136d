#include "app/UpdateArguments.h"

#include <string_view>

#include "platform/UserDefaults.h"

namespace {

bool isBundlePath(const std::optional<std::string>& path) {
  return path && std::string_view(*path).ends_with(".app");
}

}  // namespace

// static
UpdateArguments UpdateArguments::fromUserDefaults() {
  namespace user_defaults = platform::user_defaults;
  return {.source = user_defaults::string("source"),
          .destination = user_defaults::string("destination"),
          .mountPath = user_defaults::string("mountpath"),
          .silent = user_defaults::boolean("silent")};
}

bool UpdateArguments::nameTwoBundles() const {
  return isBundlePath(source) && isBundlePath(destination);
}
