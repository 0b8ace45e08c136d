#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>

#include "platform/linux/SessionHelperVerbs.h"
#include "sessionhelper/Person.h"
#include "sessionhelper/Start.h"
#include "sessionhelper/Verbs.h"

namespace session_helper {
namespace {

// GLib's own tool: it knows the person's default applications and how to launch them.
constexpr char kTool[] = "/usr/bin/gio";
// It answers as soon as the application has been started.
constexpr int kSeconds = 10;

bool hasTool() {
  if (::access(kTool, X_OK) == 0) return true;
  std::fprintf(stderr, "session-helper: %s is missing, no file can be opened\n", kTool);
  return false;
}

std::string variableOr(const char* name, const std::string& value) {
  const char* found = std::getenv(name);
  return found != nullptr && *found != '\0' ? found : value;
}

// The first entry of that name in the folders of the XDG Base Directory Specification.
std::optional<std::string> entryOf(const std::string& identifier) {
  const std::string home = variableOr("HOME", "");
  std::istringstream folders(variableOr("XDG_DATA_HOME", home + "/.local/share") + ":" +
                             variableOr("XDG_DATA_DIRS", "/usr/local/share:/usr/share"));
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string entry = folder + "/applications/" + identifier + ".desktop";
    struct stat status = {};
    if (folder.starts_with('/') && ::stat(entry.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      return entry;
    }
  }
  std::fprintf(stderr, "session-helper: there is no application %s\n", identifier.c_str());
  return std::nullopt;
}

int run(const std::vector<std::string>& command) {
  return hasTool() && runToEnd(command, kSeconds) ? 0 : kFailure;
}

}  // namespace

int openFile(const Arguments& arguments) {
  const auto order = platform::helper_verb::parsed<platform::helper_verb::OpenFile>(arguments);
  if (!order || !order->path.starts_with('/')) return kUsageError;
  if (!becomePerson()) return kFailure;
  return run({kTool, "open", order->path});
}

int openFileWith(const Arguments& arguments) {
  const auto order = platform::helper_verb::parsed<platform::helper_verb::OpenFileWith>(arguments);
  if (!order || !order->path.starts_with('/')) return kUsageError;
  if (order->identifier.find('/') != std::string::npos) return kUsageError;
  if (!becomePerson()) return kFailure;
  const std::optional<std::string> entry = entryOf(order->identifier);
  return entry ? run({kTool, "launch", *entry, order->path}) : kFailure;
}

}  // namespace session_helper
