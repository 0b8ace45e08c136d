#pragma once

#include <ctime>
#include <string>
#include <string_view>

// The format of what a file manager needs to restore an item: the ".trashinfo" file of the
// freedesktop.org Trash specification, version 1.0.
namespace platform {

// The contents of the information file of an item that was at the absolute path `original` and is
// deleted at `date`, which is written in local time. Every byte of the path that is not a letter,
// a digit, a slash or one of "-._~" is percent-encoded, so the path takes one line of ASCII,
// whatever its bytes are.
std::string trashInformation(std::string_view original, std::time_t date);

// The name of the information file of an item that is called `name` in the Trash.
std::string trashInformationName(std::string_view name);

// The name of the item whose information file is called `name`; "" when it is none.
std::string itemOfTrashInformation(std::string_view name);

// The name under which an item called `name` is tried for the `attempt`th time, from 1 on: its own
// name, then with a blank and the number before its extension. Shortened where name and information
// file's name would be longer than a file system takes; never inside a UTF-8 character.
std::string nameInTrash(std::string_view name, unsigned attempt);

}  // namespace platform
