#pragma once

#include <string>

namespace platform {

// One item on its way from one open folder to another.
struct EntryPlaces {
  // Only what was a file, or unknown, when it was listed is opened as one: opening a device may do
  // something.
  bool file = false;
  int sourceFolder = -1;
  const std::string& sourceName;
  int targetFolder = -1;
  const std::string& targetName;
};

}  // namespace platform
