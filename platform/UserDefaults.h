#pragma once

#include <optional>
#include <string>

#include "platform/PropertyList.h"

// The user's defaults for this application: the pairs of the command line first, then the file
// <bundle identifier>.plist in the Preferences folder of the user's library (as superuser: of user
// id 0's own home, whatever the environment says). A program without an identifier goes by its own
// name. Without a home there is no file. A file that is no property list reads as empty, and is
// set aside before it is replaced, see property_list::setAsideDamaged. Thread-safe; may block on
// the disk.
namespace platform::user_defaults {

// Takes the argument domain from a command line: from the first argument on, a word of a dash and
// a key takes the next word, whatever it is, as its value, and both are consumed; any other word,
// and a key at the end, is skipped. A later pair replaces an earlier one of the same key.
void setArguments(int argc, const char* const* argv);

// The value of a key, or none.
std::optional<PropertyList> object(const std::string& key);

// The value if it is a text, or none.
std::optional<std::string> string(const std::string& key);

// The truth of the value, PropertyList::boolValue; a missing key is false.
bool boolean(const std::string& key);

// Stores a value in the file's part; visible to `object` at once, on disk after `synchronize`.
void setObject(const std::string& key, PropertyList value);

// Writes what was stored, atomically, keeping what other processes have written to other keys
// meanwhile; makes the folder. Answers whether that succeeded; what could not be written stays
// stored for the next time. Waits at most two seconds for another process that is writing.
bool synchronize();

}  // namespace platform::user_defaults
