#pragma once

#include <string>

// Moves the item at the absolute `path` into the person's Trash as the desktop does it, from where
// it can be restored; never with administrator rights. Whether that succeeded. Blocks for the disk.
bool recycleItem(const std::string& path);
