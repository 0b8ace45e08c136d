#pragma once

#include <string>
#include <vector>

// The desktop as seen by an application: packages, the Trash, registering and opening. Any thread.
//
// An item that a tool of ours (platform/Privilege.h) is still writing is registered and opened when
// that tool has ended, in the order of the calls and also when this process is gone by then; the
// calls answer true at once. Where the last such tool failed the item is neither registered nor
// opened, which is told on the console.
namespace platform::workspace {

// Whether the item is a directory that is shown as one file: it has the extension of a package
// (app, bundle, framework, plugin ...) or holds Contents/Info.plist.
bool isFilePackage(const std::string& path);

// Moves the items `names` of the folder `source` into the Trash at `trash`, ".Trash" in the
// person's home, from which file managers can restore them. Where nothing is there the system's own
// Trash is made to be found there. A real folder at `trash` takes the items without what restoring
// needs; so does a disk without room for it, which the console is told: moving an item needs no
// room.
//
// A taken name gets a number before its extension. Each item is moved whole or not at all, across
// file systems too, keeps its owner, and is never deleted; answers true when all were moved.
// Refuses no names, an empty name, "." and "..", a name with a slash in it, and relative folders.
// As superuser what is made in the console user's home belongs to its owner, and a Trash that leads
// out of that home is refused. Blocks for the disk.
bool recycle(const std::string& source, const std::string& trash,
             const std::vector<std::string>& names);

// Makes the Trash at `trash` as recycle does where there is none, for one who moves items there by
// other means; answers whether it is there. As superuser only that of the console user is made: in
// another home nothing is safe from the links of its owner. Blocks for the disk.
bool makeTrash(const std::string& trash);

// Makes the application bundle known to the desktop: its menu, and what opens its files. Answers
// whether that succeeded.
bool registerApplication(const std::string& bundlePath);

// Opens an item as a double click would: a bundle is started in a session of its own, another file
// is opened by the desktop's default application. Returns as soon as that has been asked for.
// Nothing is ever started with the superuser's rights: as superuser it is the console user who
// opens it, and without one this fails. Answers whether it could be asked for; what becomes of it
// is not known.
bool open(const std::string& path);

// Open a file with an application bundle, or with the application of a bundle identifier, as `open`
// does.
bool openWithApplication(const std::string& path, const std::string& bundlePath);
bool openWithBundleIdentifier(const std::string& path, const std::string& identifier);

}  // namespace platform::workspace
