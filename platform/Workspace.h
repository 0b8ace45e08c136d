#pragma once

#include <string>
#include <vector>

// The desktop as seen by an application: packages, the Trash, registering and opening. Any thread.
namespace platform::workspace {

// Whether the item is a directory that is shown as one file: it has the extension of a package
// (app, bundle, framework, plugin ...) or holds Contents/Info.plist.
bool isFilePackage(const std::string& path);

// Moves the items `names` of the folder `source` into the person's Trash, `trash`, from which file
// managers can restore them. A taken name gets a free one. Each item is moved whole or not at all;
// answers true when all were. Refuses none, an empty name and a name with a slash in it.
bool recycle(const std::string& source, const std::string& trash,
             const std::vector<std::string>& names);

// Makes the application bundle known to the desktop: its menu, and what opens its files.
bool registerApplication(const std::string& bundlePath);

// Opens an item as a double click would: a bundle is started in a session of its own, another file
// is opened by the desktop's default application. Returns as soon as that has been asked for.
// Nothing is ever started with the superuser's rights: as superuser it is the console user who
// opens it, and without one this fails.
bool open(const std::string& path);

// Opens a file with an application bundle, or with the application of a bundle identifier.
bool openWithApplication(const std::string& path, const std::string& bundlePath);
bool openWithBundleIdentifier(const std::string& path, const std::string& identifier);

}  // namespace platform::workspace
