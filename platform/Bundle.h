#pragma once

#include <optional>
#include <string>

#include "platform/PropertyList.h"

namespace platform {

// A directory that holds a program with its information and resources:
// Name.app/Contents/{Info.plist, Linux/<executable>, Resources/}. Also found: the executable in
// Contents/MacOS or beside Contents as Name.app/Name. The executable is what CFBundleExecutable
// names, else it has the bundle's own name without extension; a name that leads out of the folder
// is refused. Immutable once made; thread-safe.
class Bundle {
 public:
  // The bundle that the running program is in. A program outside any bundle has one with its own
  // folder as path and an empty information dictionary.
  static const Bundle& main();

  // The bundle at `path`; none when there is no directory.
  static std::optional<Bundle> at(const std::string& path);

  const std::string& path() const noexcept { return path_; }
  // The program's full path; none when the bundle has none.
  const std::optional<std::string>& executablePath() const noexcept { return executablePath_; }
  // CFBundleIdentifier, if any.
  std::optional<std::string> identifier() const;
  // A text of Info.plist, or none.
  std::optional<std::string> infoString(const std::string& key) const;
  const PropertyList::Dictionary& info() const noexcept { return info_; }

  // The full path of Contents/Resources/<name>.<type>, or none when it does not exist.
  std::optional<std::string> resourcePath(const std::string& name, const std::string& type) const;
  // The full path of `name` beside the executable, where the bundle's own helper programs and
  // modules stand, also those of a program outside any bundle; none when it does not exist.
  std::optional<std::string> auxiliaryPath(const std::string& name) const;

 private:
  Bundle(std::string path, std::optional<std::string> executablePath,
         PropertyList::Dictionary info);

  std::string path_;
  std::optional<std::string> executablePath_;
  PropertyList::Dictionary info_;
};

}  // namespace platform
