#include "platform/linux/tasks/ToolEquivalents.h"

#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include "platform/Bundle.h"
#include "platform/linux/tasks/Turn.h"

namespace platform {
namespace {

constexpr char kDiskImageTool[] = "/usr/bin/hdiutil";

bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

// Programs of the system are looked for where root alone can put one.
std::optional<std::string> systemProgram(std::string_view name) {
  for (const std::string_view folder : {"/usr/bin/", "/bin/"}) {
    std::string path = std::string(folder).append(name);
    if (exists(path)) return path;
  }
  return std::nullopt;
}

std::optional<std::string> equivalent(const std::string& namedPath) {
  // Its "detach PATH [-force]"; nothing else of it is known here.
  if (namedPath == kDiskImageTool) return Bundle::main().auxiliaryPath("session-helper");
  // Its "-ck [--keepParent] SOURCE ARCHIVE" and "-xk ARCHIVE FOLDER".
  if (namedPath == "/usr/bin/ditto") return Bundle::main().auxiliaryPath("archiver");
  if (namedPath == "/usr/sbin/chown") return systemProgram("chown");
  return std::nullopt;
}

}  // namespace

std::string resolvedTool(const std::string& namedPath) {
  if (exists(namedPath)) return namedPath;
  return equivalent(namedPath).value_or(namedPath);
}

ToolCommand toolCommand(const std::string& namedPath, const std::vector<std::string>& arguments) {
  ToolCommand command{resolvedTool(namedPath), arguments, {}};
  if (namedPath != kDiskImageTool || command.path == namedPath) return command;
  const auto image = std::ranges::find_if(
      arguments, [](const std::string& word) { return word.starts_with('/'); });
  if (image == arguments.end()) return command;
  session_helper::Turn turn = session_helper::turnOf(arguments, {*image});
  if (!turn.isLater) return command;
  command.arguments = std::move(turn.arguments);
  command.descriptors = std::move(turn.descriptors);
  return command;
}

}  // namespace platform
