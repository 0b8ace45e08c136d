#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Bundle.h"

// The text of a .desktop file by which desktops know an application: the Desktop Entry
// Specification, https://specifications.freedesktop.org/desktop-entry-spec/latest/. Pure text but
// for `describing`, which asks whether the icon exists. Thread-safe.
namespace platform::desktop_entry {

struct Application {
  // For a person.
  std::string name;
  // Absolute path of the program.
  std::string executable;
  // Absolute path of the bundle; marks the entry as one that registering wrote.
  std::string bundle;
  // Absolute path of a picture.
  std::optional<std::string> icon;
  // What it opens; anything that is no media type is left out.
  std::vector<std::string> mediaTypes;
};

// What the bundle's information says; none when the bundle has no program.
std::optional<Application> describing(const Bundle& bundle);

// The whole file. None when a path cannot be written in one: it is not valid UTF-8 or holds control
// characters, a line break for example. The name is made valid instead.
std::optional<std::string> serialized(const Application& application);

// Whether `entry` is the text of a file that `serialized` made.
bool isOurs(std::string_view entry);

// The name of the file: the identifier if it consists of ASCII letters, digits, dots and dashes and
// begins with a letter or digit, else the bundle's own name with everything else replaced by
// dashes.
std::string fileName(const std::optional<std::string>& identifier, const std::string& bundlePath);

// Whether `identifier` may name a file, see `fileName`.
bool isFileNameSafe(std::string_view identifier);

}  // namespace platform::desktop_entry
