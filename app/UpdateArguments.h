#pragma once

#include <optional>
#include <string>

// What the updater asks for on the command line, read through the user defaults:
//     -source PATH -destination PATH -mountpath PATH -silent BOOL
struct UpdateArguments {
  // The new application bundle, usually on the mounted disk image.
  std::optional<std::string> source;
  // The installed bundle that the new one replaces.
  std::optional<std::string> destination;
  // Where the disk image is mounted; an empty text is a mount path too.
  std::optional<std::string> mountPath;
  // A host application shows the progress: no window, and nothing is opened at the end.
  bool silent = false;

  // Reads the user defaults as they stand now.
  static UpdateArguments fromUserDefaults();

  // Whether both bundles are given and end in ".app", in this very case. Nothing is looked up.
  bool nameTwoBundles() const;
};
