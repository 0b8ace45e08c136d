#include "platform/Bundle.h"

#include <array>
#include <string_view>
#include <utility>

#include "platform/FileSystem.h"
#include "platform/NoDestructor.h"
#include "platform/Path.h"
#include "platform/ProcessInfo.h"

namespace platform {
namespace {

constexpr char kInformation[] = "Contents/Info.plist";
constexpr char kResources[] = "Contents/Resources";
// Where programs stand in a bundle, in the order in which they are looked for.
constexpr std::array<std::string_view, 3> kProgramFolders = {"Contents/Linux", "Contents/MacOS",
                                                             ""};

// A name from a file that anybody may have written must stay in the folder that it is looked for
// in.
bool isPlainName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
         name.find('\0') == std::string_view::npos;
}

PropertyList::Dictionary informationOf(const std::string& bundlePath) {
  auto info = property_list::read(path::appending(bundlePath, kInformation));
  return info ? std::move(*info) : PropertyList::Dictionary();
}

std::optional<std::string> textIn(const PropertyList::Dictionary& info, const std::string& key) {
  const auto found = info.find(key);
  const auto* text = found != info.end() ? found->second.get<std::string>() : nullptr;
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

bool isProgram(const std::string& path) {
  return file_system::isExecutable(path) && !file_system::isDirectory(path);
}

std::optional<std::string> programIn(const std::string& bundlePath,
                                     const PropertyList::Dictionary& info) {
  const std::string name = textIn(info, "CFBundleExecutable")
                               .value_or(path::lastComponent(path::deletingExtension(bundlePath)));
  if (!isPlainName(name)) return std::nullopt;
  for (const auto folder : kProgramFolders) {
    std::string path = path::appending(path::appending(bundlePath, folder), name);
    if (isProgram(path)) return path;
  }
  return std::nullopt;
}

// The bundle that a program in `folder` belongs to, none when it is in no bundle.
std::optional<std::string> bundleAround(const std::string& folder) {
  std::string candidate = folder;
  const std::string above = path::deletingLastComponent(folder);
  if (path::lastComponent(above) == "Contents") candidate = path::deletingLastComponent(above);
  if (!file_system::exists(path::appending(candidate, kInformation))) return std::nullopt;
  return candidate;
}

std::optional<std::string> existing(std::string path) {
  if (!file_system::exists(path)) return std::nullopt;
  return path;
}

}  // namespace

Bundle::Bundle(std::string path, std::optional<std::string> executablePath,
               PropertyList::Dictionary info)
    : path_(std::move(path)), executablePath_(std::move(executablePath)), info_(std::move(info)) {}

// static
const Bundle& Bundle::main() {
  static NoDestructor<Bundle> bundle([] {
    const std::string program = process_info::executablePath();
    const std::string folder = path::deletingLastComponent(program);
    const auto around = bundleAround(folder);
    if (!around) return Bundle(folder, program, {});
    return Bundle(*around, program, informationOf(*around));
  }());
  return *bundle;
}

// static
std::optional<Bundle> Bundle::at(const std::string& path) {
  if (!file_system::isDirectory(path)) return std::nullopt;
  auto info = informationOf(path);
  auto program = programIn(path, info);
  return Bundle(path, std::move(program), std::move(info));
}

std::optional<std::string> Bundle::identifier() const {
  return infoString("CFBundleIdentifier");
}

std::optional<std::string> Bundle::infoString(const std::string& key) const {
  return textIn(info_, key);
}

std::optional<std::string> Bundle::resourcePath(const std::string& name,
                                                const std::string& type) const {
  if (name.empty()) return std::nullopt;
  const std::string file = type.empty() ? name : name + "." + type;
  return existing(path::appending(path::appending(path_, kResources), file));
}

std::optional<std::string> Bundle::auxiliaryPath(const std::string& name) const {
  if (!executablePath_ || !isPlainName(name)) return std::nullopt;
  return existing(path::appending(path::deletingLastComponent(*executablePath_), name));
}

}  // namespace platform
