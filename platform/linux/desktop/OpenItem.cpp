#include "platform/Bundle.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/Text.h"
#include "platform/Workspace.h"
#include "platform/linux/desktop/DesktopEntry.h"
#include "platform/linux/tasks/SessionHelper.h"

namespace platform::workspace {
namespace {

// Other packages, documents and plugins, hold nothing that a double click should run.
bool isApplication(const std::string& path, const Bundle& bundle) {
  return text::lowercased(path::extension(path)) == "app" ||
         bundle.infoString("CFBundlePackageType") == "APPL";
}

// The program of the application at `path`, in a list that arguments can follow; empty when there
// is none that could be run.
std::vector<std::string> commandOf(const Bundle& application) {
  const std::optional<std::string>& program = application.executablePath();
  if (!program || file_system::isDirectory(*program)) return {};
  return {"start", *program};
}

bool isAbsolute(const std::string& path) {
  return path.starts_with('/');
}

}  // namespace

bool open(const std::string& path) {
  if (!isAbsolute(path)) return false;
  if (const auto held = session_helper::heldBack({"open", path}, {path})) return *held;
  if (!file_system::exists(path)) return false;
  const std::optional<Bundle> bundle = Bundle::at(path);
  if (!bundle || !isApplication(path, *bundle)) return session_helper::run({"open-file", path});
  const std::vector<std::string> command = commandOf(*bundle);
  return !command.empty() && session_helper::run(command);
}

bool openWithApplication(const std::string& path, const std::string& bundlePath) {
  if (!isAbsolute(path) || !isAbsolute(bundlePath)) return false;
  if (const auto held =
          session_helper::heldBack({"open-with", bundlePath, path}, {bundlePath, path})) {
    return *held;
  }
  if (!file_system::exists(path) || !file_system::exists(bundlePath)) return false;
  const std::optional<Bundle> bundle = Bundle::at(bundlePath);
  std::vector<std::string> command = bundle ? commandOf(*bundle) : std::vector<std::string>{};
  if (command.empty()) return false;
  command.push_back(path);
  return session_helper::run(command);
}

bool openWithBundleIdentifier(const std::string& path, const std::string& identifier) {
  if (!isAbsolute(path) || !desktop_entry::isFileNameSafe(identifier)) return false;
  const std::vector<std::string> verb = {"open-file-with", identifier, path};
  if (const auto held = session_helper::heldBack(verb, {path})) return *held;
  return file_system::exists(path) && session_helper::run(verb);
}

}  // namespace platform::workspace
