#include "platform/Bundle.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/Text.h"
#include "platform/Workspace.h"
#include "platform/linux/SessionHelperVerbs.h"
#include "platform/linux/desktop/DesktopEntry.h"
#include "platform/linux/tasks/SessionHelper.h"

namespace platform::workspace {
namespace {

using session_helper::Handover;

// Other packages, documents and plugins, hold nothing that a double click should run.
bool isApplication(const std::string& path, const Bundle& bundle) {
  return text::lowercased(path::extension(path)) == "app" ||
         bundle.infoString("CFBundlePackageType") == "APPL";
}

// Starts the application's program with these arguments, if there is one that could be run.
bool start(const Bundle& application, const std::vector<std::string>& arguments) {
  const std::optional<std::string>& program = application.executablePath();
  if (!program || file_system::isDirectory(*program)) return false;
  helper_verb::Start start{{*program}};
  start.command.insert(start.command.end(), arguments.begin(), arguments.end());
  return session_helper::run(helper_verb::words(start));
}

bool isAbsolute(const std::string& path) {
  return path.starts_with('/');
}

}  // namespace

bool open(const std::string& path) {
  if (!isAbsolute(path)) return false;
  const auto handover =
      session_helper::handOver(helper_verb::words(helper_verb::Open{path}), {path});
  if (handover != Handover::notNeeded) return handover == Handover::accepted;
  if (!file_system::exists(path)) return false;
  const std::optional<Bundle> bundle = Bundle::at(path);
  if (bundle && isApplication(path, *bundle)) return start(*bundle, {});
  return session_helper::run(helper_verb::words(helper_verb::OpenFile{path}));
}

bool openWithApplication(const std::string& path, const std::string& bundlePath) {
  if (!isAbsolute(path) || !isAbsolute(bundlePath)) return false;
  const auto words = helper_verb::words(helper_verb::OpenWith{bundlePath, path});
  const auto handover = session_helper::handOver(words, {bundlePath, path});
  if (handover != Handover::notNeeded) return handover == Handover::accepted;
  if (!file_system::exists(path) || !file_system::exists(bundlePath)) return false;
  const std::optional<Bundle> bundle = Bundle::at(bundlePath);
  return bundle && start(*bundle, {path});
}

bool openWithBundleIdentifier(const std::string& path, const std::string& identifier) {
  if (!isAbsolute(path) || !desktop_entry::isFileNameSafe(identifier)) return false;
  const auto words = helper_verb::words(helper_verb::OpenFileWith{identifier, path});
  const auto handover = session_helper::handOver(words, {path});
  if (handover != Handover::notNeeded) return handover == Handover::accepted;
  return file_system::exists(path) && session_helper::run(words);
}

}  // namespace platform::workspace
