#include <algorithm>
#include <array>

#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/Text.h"
#include "platform/Workspace.h"

namespace platform::workspace {
namespace {

constexpr std::array kPackageExtensions = {
    "app",        "appex", "bundle",  "component", "framework", "kext",
    "mdimporter", "mpkg",  "pkg",     "plugin",    "prefpane",  "qlgenerator",
    "rtfd",       "saver", "service", "wdgt",      "xpc",
};

bool isPackageExtension(const std::string& extension) {
  const std::string lower = text::lowercased(extension);
  return std::find(kPackageExtensions.begin(), kPackageExtensions.end(), lower) !=
         kPackageExtensions.end();
}

}  // namespace

bool isFilePackage(const std::string& path) {
  if (!file_system::isDirectory(path)) return false;
  return isPackageExtension(path::extension(path)) ||
         file_system::exists(path::appending(path, "Contents/Info.plist"));
}

}  // namespace platform::workspace
