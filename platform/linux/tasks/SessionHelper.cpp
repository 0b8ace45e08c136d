#include "platform/linux/tasks/SessionHelper.h"

#include <system_error>

#include "platform/Bundle.h"
#include "platform/Console.h"
#include "platform/Exception.h"
#include "platform/Task.h"
#include "platform/linux/processes/ChildProcess.h"
#include "platform/linux/tasks/Turn.h"

namespace platform::session_helper {
namespace {

std::optional<std::string> program() {
  return Bundle::main().auxiliaryPath("session-helper");
}

// Nobody waits for it; what it has to tell goes where this process's errors go.
bool start(const Turn& turn) {
  ChildProgram child;
  child.path = program().value_or(std::string());
  child.arguments = turn.arguments;
  child.arguments.insert(child.arguments.begin(), child.path);
  child.ends = {ChildProgram::kNullDevice, ChildProgram::kNullDevice, ChildProgram::kInherited};
  for (const posix::FileDescriptor& each : turn.descriptors) child.further.push_back(each.get());
  try {
    const ChildProcess started(child);
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace

bool run(const std::vector<std::string>& words) {
  const auto path = program();
  if (!path) return false;
  const std::shared_ptr<Task> task = Task::create();
  task->setLaunchPath(*path);
  task->setArguments(words);
  task->setStandardInput(Task::End::nullDevice);
  try {
    task->launch();
  } catch (const Exception&) {
    return false;
  }
  task->waitUntilExit();
  return task->terminationStatus() == 0;
}

Handover handOver(const std::vector<std::string>& verb, const std::vector<std::string>& paths) {
  const Turn turn = turnOf(verb, paths);
  if (turn.isLater) return start(turn) ? Handover::accepted : Handover::refused;
  if (!turn.isAfterFailure) return Handover::notNeeded;
  tellIncomplete(verb);
  return Handover::refused;
}

void tellIncomplete(const std::vector<std::string>& verb) {
  const std::string& name = verb.front();
  console::log("Unable to %@ %@ because it was not written completely",
               name.substr(0, name.find('-')), verb.back());
}

}  // namespace platform::session_helper
