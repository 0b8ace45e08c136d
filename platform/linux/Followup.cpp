#include "platform/linux/Followup.h"

#include "platform/Bundle.h"
#include "platform/Exception.h"
#include "platform/Task.h"

namespace platform::followup {

bool run(const std::vector<std::string>& arguments) {
  const auto program = Bundle::main().auxiliaryPath("followup");
  if (!program) return false;
  const std::shared_ptr<Task> task = Task::create();
  task->setLaunchPath(*program);
  task->setArguments(arguments);
  task->setStandardInput(Task::End::nullDevice);
  try {
    task->launch();
  } catch (const Exception&) {
    return false;
  }
  task->waitUntilExit();
  return task->terminationStatus() == 0;
}

}  // namespace platform::followup
