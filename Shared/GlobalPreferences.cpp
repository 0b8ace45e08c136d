#include "Shared/GlobalPreferences.h"

#include "Shared/QVLocalPaths.h"
#include "platform/Path.h"
#include "platform/PropertyList.h"

namespace global_preferences {

bool isSwitchedOn(const std::string& key) {
  const auto file =
      platform::path::appending(QVLocalPaths::prefsDirectory(true), "com.quorvale.global.plist");
  const auto preferences = file ? platform::property_list::read(*file) : std::nullopt;
  if (!preferences) return false;
  const auto value = preferences->find(key);
  return value != preferences->end() && value->second.isSwitchedOn();
}

}  // namespace global_preferences
