#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/PropertyList.h"
#include "platform/Status.h"

// Small files in a person's places: logs, preferences, records. For an ordinary user these are the
// operations of platform/FileSystem.h. What the superuser asks for in a place that is not the
// superuser's alone is done by a child program with the ids of the person whose place it is: a link
// there leads only where the person may go, and what is made belongs to the person. All of it
// together may take ten seconds for one person; where a file system does not answer in that time
// everything of that person's counts as absent, and nothing is written there any more. Without the
// child program likewise. Any thread.
namespace platform::personal_files {

// Whether this is the superuser's process and the folder of `path` is in a place of a person's.
bool isInPersonsFolder(const std::string& path);

// Whether an item exists; a link counts by its target.
bool exists(const std::string& path);
// When an item was last changed; a link's own date. None when there is none.
std::optional<std::chrono::system_clock::time_point> modificationDate(const std::string& path);
// The names in a folder, as file_system::list has them.
std::optional<std::vector<std::string>> list(const std::string& path);
Status createDirectory(const std::string& path);
Status move(const std::string& source, const std::string& destination);
Status remove(const std::string& path);
// property_list::merge, see there.
Status merge(const std::string& path, const PropertyList::Dictionary& changes,
             std::chrono::milliseconds patience);

}  // namespace platform::personal_files
