#include "tests/support/WindowProgram.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/support/ProcessState.h"
#include "tests/support/WaitFor.h"

namespace test {

void putPersonAtScreen(Sandbox& sandbox) {
  if (!Sandbox::canSimulateMachine()) return;
  sandbox.simulateMachine();
  sandbox.setConsoleUser(Sandbox::kConsoleUser);
}

pid_t windowProgram() {
  return windowProgramOf(::getpid());
}

pid_t windowProgramOf(pid_t process) {
  for (const pid_t child : childIdsOf(process)) {
    std::error_code none;  // a zombie has no program
    const std::filesystem::path program = "/proc/" + std::to_string(child) + "/exe";
    if (std::filesystem::read_symlink(program, none).filename() == "window") return child;
  }
  return 0;
}

// A zombie keeps its name. Before the program there may be the one that becomes it.
bool waitForEndOfWindowProgram() {
  return waitFor([] {
    return std::ranges::none_of(childIds(), [](pid_t child) {
      const std::string name = readFile("/proc/" + std::to_string(child) + "/comm");
      return name == "window\n" || name == "session-helper\n";
    });
  });
}

}  // namespace test
