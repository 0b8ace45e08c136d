#include "sessionhelper/LoopDevice.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "platform/Exception.h"
#include "platform/Task.h"
#include "sessionhelper/MountTable.h"

namespace session_helper {
namespace {

namespace fs = std::filesystem;
using platform::Task;

bool lasts(const fs::path& loopDevice) {
  std::ifstream file(loopDevice / "loop/autoclear");
  char autoclear = 0;
  return file >> autoclear && autoclear == '0';
}

}  // namespace

std::optional<std::string> lastingLoopDeviceAt(const std::string& mountPoint) {
  std::ifstream mountInfo("/proc/self/mountinfo");
  const std::string number = deviceMountedAt(mountPoint, mountInfo);
  std::error_code missing;
  const fs::path device = fs::canonical("/sys/dev/block/" + number, missing);
  if (number.empty() || missing) return std::nullopt;
  for (const fs::path& candidate : {device, device.parent_path()}) {
    if (lasts(candidate)) return "/dev/" + candidate.filename().string();
  }
  return std::nullopt;
}

bool isLoopDevice(const std::string& number) {
  std::error_code missing;
  const fs::path device = fs::canonical("/sys/dev/block/" + number, missing);
  return !missing && (fs::exists(device / "loop", missing) ||
                      fs::exists(device.parent_path() / "loop", missing));
}

void deleteLoopDevice(const std::string& device) {
  const auto task = Task::create();
  task->setLaunchPath("/usr/bin/udisksctl");
  task->setArguments({"loop-delete", "--no-user-interaction", "--block-device", device});
  task->setStandardInput(Task::End::nullDevice);
  task->setStandardOutput(Task::End::nullDevice);
  task->setStandardError(Task::End::nullDevice);
  try {
    task->launch();
    task->waitUntilExit();
  } catch (const platform::Exception&) {
    // Without udisks nobody has set the device up through it.
  }
}

}  // namespace session_helper
