#include "sessionhelper/Unmount.h"

#include <unistd.h>

#include <string_view>
#include <vector>

#include "platform/Exception.h"
#include "platform/Task.h"

namespace session_helper {
namespace {

using platform::Task;

constexpr std::string_view kBusy = "target is busy.";

std::vector<std::string> arguments(const std::string& mountPoint, Manner manner) {
  std::vector<std::string> words;
  if (manner == Manner::lazy) words.emplace_back("--lazy");
  // The path is followed no further than we have looked. Only root may ask for that; for everybody
  // else the tool looks itself, with that person's rights.
  if (::geteuid() == 0) words.emplace_back("--no-canonicalize");
  words.insert(words.end(), {"--", mountPoint});
  return words;
}

std::string readToEnd(platform::Pipe& pipe) {
  platform::Data data;
  while (pipe.appendAvailableData(data) > 0) {
  }
  std::string text(reinterpret_cast<const char*>(data.data()), data.size());
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

}  // namespace

UnmountResult unmount(const std::string& mountPoint, Manner manner) {
  const auto task = Task::create();
  task->setLaunchPath("/usr/bin/umount");
  task->setArguments(arguments(mountPoint, manner));
  // Its words are compared, so it speaks no other language.
  task->setEnvironment({{"LC_ALL", "C"}});
  task->setStandardInput(Task::End::nullDevice);
  task->setStandardOutput(Task::End::nullDevice);
  task->setStandardError(Task::End::pipe);
  UnmountResult result;
  try {
    task->launch();
    result.message = readToEnd(*task->standardErrorPipe());
    task->waitUntilExit();
    result.done = task->terminationStatus() == 0;
  } catch (const platform::Exception& exception) {
    result.message = task->launchPath() + ": " + exception.reason();
  }
  // At the end, because the mount point stands before it and may be called anything.
  result.busy = !result.done && result.message.ends_with(kBusy);
  return result;
}

}  // namespace session_helper
