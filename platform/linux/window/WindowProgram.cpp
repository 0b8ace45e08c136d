#include "platform/linux/window/WindowProgram.h"
#include "platform/linux/SessionHelperVerbs.h"

#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "platform/Bundle.h"
#include "platform/Console.h"
#include "platform/Directories.h"
#include "platform/ProcessInfo.h"
#include "platform/linux/SessionHelperVerbs.h"
#include "window/Messages.h"

namespace platform {
namespace {

bool isSuperuser() {
  return ::getuid() == 0 || ::geteuid() == 0;
}

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

// The console user's screen is looked for by the process that becomes that person.
bool mayHaveDisplay() {
  if (isSuperuser()) return directories::consoleUser().has_value();
  return isSet("DISPLAY") || isSet("WAYLAND_DISPLAY");
}

// Empty when one of the programs is missing.
std::vector<std::string> command() {
  const auto program = Bundle::main().auxiliaryPath(window::kProgram);
  if (!program) return {};
  std::vector<std::string> words = {*program, window::kVersion, process_info::processName()};
  if (!isSuperuser()) return words;
  const auto becoming = Bundle::main().auxiliaryPath("session-helper");
  if (!becoming) return {};
  words = helper_verb::words(helper_verb::Become{words});
  words.insert(words.begin(), *becoming);
  return words;
}

}  // namespace

std::unique_ptr<ChildProcess> startWindowProgram(const posix::FileDescriptor& socket) {
  if (!mayHaveDisplay()) return nullptr;
  ChildProgram child;
  child.arguments = command();
  if (child.arguments.empty()) {
    console::writeLine("The window program is missing.");
    return nullptr;
  }
  child.path = child.arguments.front();
  // Not even our standard error: it may be a terminal of the superuser's.
  child.ends.fill(ChildProgram::kNullDevice);
  child.further = {socket.get()};
  try {
    return std::make_unique<ChildProcess>(child);
  } catch (const std::system_error& error) {
    console::log("The window program cannot be started: %@", error.code().message());
    return nullptr;
  }
}

}  // namespace platform
