#include "sessionhelper/Unmount.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <string_view>
#include <vector>

#include "channel/Way.h"
#include "platform/Exception.h"
#include "platform/Task.h"
#include "posix/FileDescriptor.h"
#include "sessionhelper/LoopDevice.h"
#include "sessionhelper/MountTable.h"

namespace session_helper {
namespace {

using platform::Task;

constexpr std::string_view kBusy = "target is busy.";

std::vector<std::string> arguments(const std::string& mountPoint, Manner manner) {
  std::vector<std::string> words;
  if (manner == Manner::lazy) words.emplace_back("--lazy");
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

UnmountResult unmountByTool(const std::string& mountPoint, Manner manner) {
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

// The folder of a mount point, opened without following a link.
posix::FileDescriptor folderOf(const std::string& mountPoint) {
  open_how how{};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS;
  const std::string folder = mountPoint.substr(0, mountPoint.rfind('/') + 1);
  return posix::FileDescriptor(
      static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, folder.c_str(), &how, sizeof how)));
}

std::optional<Mount> mountAt(const posix::FileDescriptor& folder, const std::string& name) {
  struct statx facts {};
  if (::statx(folder.get(), name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_MNT_ID, &facts) != 0) {
    return std::nullopt;
  }
  std::ifstream mountInfo("/proc/self/mountinfo");
  return mountOf(facts.stx_mnt_id, mountInfo);
}

// Where others may change the way, it leads to what they like.
bool mayTakeAway(const std::string& mountPoint, const posix::FileDescriptor& folder,
                 const Mount& mount) {
  struct stat facts {};
  if (channel::wayTo(mountPoint.substr(0, mountPoint.rfind('/') + 1), channel::End::meant)
          .isRootsAlone()) {
    return true;
  }
  if (isLoopDevice(mount.device)) return true;
  if (!mount.type.starts_with("fuse") || ::fstat(folder.get(), &facts) != 0) return false;
  const std::string owner = ",user_id=" + std::to_string(facts.st_uid) + ",";
  return ("," + mount.options + ",").find(owner) != std::string::npos;
}

UnmountResult unmountAsRoot(const std::string& mountPoint, Manner manner) {
  UnmountResult result;
  const std::string name = mountPoint.substr(mountPoint.rfind('/') + 1);
  const posix::FileDescriptor folder = folderOf(mountPoint);
  const std::optional<Mount> mount = folder ? mountAt(folder, name) : std::nullopt;
  if (!mount || !mayTakeAway(mountPoint, folder, *mount)) {
    result.message = mountPoint + ": is not an image's, and others may change the way there";
    return result;
  }
  const std::string held = "/proc/self/fd/" + std::to_string(folder.get()) + "/" + name;
  const int flags = UMOUNT_NOFOLLOW | (manner == Manner::lazy ? MNT_DETACH : 0);
  result.done = ::umount2(held.c_str(), flags) == 0;
  if (result.done) return result;
  result.busy = errno == EBUSY;
  result.message = mountPoint + ": " + std::strerror(errno);
  return result;
}

}  // namespace

UnmountResult unmount(const std::string& mountPoint, Manner manner) {
  return ::geteuid() == 0 ? unmountAsRoot(mountPoint, manner) : unmountByTool(mountPoint, manner);
}

}  // namespace session_helper
