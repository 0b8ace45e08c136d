#pragma once

#include <functional>
#include <string>

// Calls `visit` with the full path of everything in the folder that is not a folder, at every depth
// and through links to folders, folder by folder in the order of the listings. Each folder is gone
// through once, however many links lead to it, so that a link back up ends the walk there. What
// cannot be read is passed over. `visit` may remove the item that it is given.
void forEachFileIn(const std::string& folder,
                   const std::function<void(const std::string& path)>& visit);
