#include "Shared/QVAuthorization.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <mutex>

#include "Shared/QVLocalPaths.h"
#include "Shared/QVLog.h"
#include "Shared/QVTaskEx.h"
#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/Date.h"
#include "platform/Exception.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/ProcessInfo.h"
#include "platform/Workspace.h"

namespace console = platform::console;
namespace file_system = platform::file_system;
namespace path = platform::path;
using platform::privilege::Outcome;
using platform::privilege::Output;
using platform::process_info::isSuperuser;

namespace {

constexpr char kRemove[] = "/bin/rm";
constexpr char kMove[] = "/bin/mv";
constexpr char kCopy[] = "/bin/cp";
constexpr char kMakeDirectory[] = "/bin/mkdir";
constexpr platform::clock::Seconds kPauseAfterMakingDirectory = std::chrono::microseconds(500);

// Guards `shared`. Recursive because making the shared instance allocates it.
std::recursive_mutex classLock;
QVAuthorization* shared = nullptr;

// A relative path would mean another item to the tool than to this process, and one that begins
// with a hyphen an option.
bool isUsable(const QVAuthorization::Path& path) {
  return path && path->starts_with('/');
}

bool isSystemDirectory(const QVAuthorization::Path& path) {
  return path && QVLocalPaths::isPathSystemDirectory(*path, true);
}

// The answer is the same whatever became of the tool.
void startUnwatched(const std::string& tool, const std::vector<std::string>& parameters) {
  try {
    QVTaskEx::runTaskAndReturn(tool, parameters);
  } catch (const platform::Exception& exception) {
    console::log("Unable to run %@: %@", tool, exception.reason());
  }
}

void readToEnd(platform::privilege::ToolOutput& output) {
  std::array<std::byte, 4096> buffer{};
  while (output.read(buffer) > 0) {
  }
}

}  // namespace

// static
QVAuthorization& QVAuthorization::sharedController(bool withGUI) {
  const std::lock_guard lock(classLock);
  if (shared == nullptr) {
    QVAuthorization* made = allocWithZone();
    if (withGUI) {
      made->init();
    } else {
      made->initWithoutGUI();
    }
  }
  return *shared;
}

// static
QVAuthorization* QVAuthorization::allocWithZone() {
  const std::lock_guard lock(classLock);
  if (shared != nullptr) return nullptr;
  shared = new QVAuthorization;
  return shared;
}

QVAuthorization* QVAuthorization::initialise(bool withGUI) {
  hasGUI_ = withGUI;
  // The system hands it down once; who initialises anew keeps it.
  if (inherited_ == nullptr) inherited_ = Session::inherited();
  authRef_ = inherited_;
  if (!isSuperuser()) userDirectory_ = QVLocalPaths::userDirectory();
  return this;
}

bool QVAuthorization::authStart() {
  if (isAuthorized()) return true;
  if (!hasGUI_) {
    console::log("Unable to authorize");
    return false;
  }
  authRef_ = Session::create().session;
  if (authRef_ != nullptr && authRef_->askForRights() == Outcome::granted) return true;
  authRef_ = nullptr;
  return false;
}

bool QVAuthorization::authStartWithUser(const std::optional<std::string>& user,
                                        const std::optional<std::string>& password) {
  if (isSuperuser()) return true;
  if (!user || !password) return false;
  const Session::Creation creation = Session::create();
  authRef_ = creation.session;
  if (authRef_ == nullptr) {
    console::log("Unable to create authRef - error %d", creation.status);
    return false;
  }
  if (authRef_->obtainRights({*user, *password}) == Outcome::granted) return true;
  authRef_ = nullptr;
  constexpr char kFailed[] = "Authorization failed. Invalid username or password";
  console::log(kFailed);
  QVLog::appendLog(kFailed);
  return false;
}

void QVAuthorization::authEnd() {
  if (authRef_ != nullptr && !isSuperuser()) authRef_->end();
  forgetSession();
}

void QVAuthorization::forgetSession() {
  if (authRef_ == inherited_) inherited_ = nullptr;
  authRef_ = nullptr;
}

bool QVAuthorization::isAuthorized() const {
  return isSuperuser() || authRef_ != nullptr;
}

bool QVAuthorization::canAuthorize() const {
  return hasGUI_ || isSuperuser();
}

int QVAuthorization::authExecTask(const std::string& tool,
                                  const std::vector<std::string>& parameters, bool async) {
  if (!file_system::exists(tool)) {
    console::log("Unable to execute task: path %@ doesn't exist", tool);
    return kToolMissing;
  }
  if (isSuperuser()) {
    if (async) {
      startUnwatched(tool, parameters);
    } else {
      QVTaskEx::runTask(tool, parameters);
    }
    return 0;
  }
  if (!isAuthorized()) authStart();
  if (!isAuthorized()) return kNotAuthorized;
  return runThroughSession(tool, parameters, async);
}

int QVAuthorization::runThroughSession(const std::string& tool,
                                       const std::vector<std::string>& parameters, bool async) {
  const auto execution =
      authRef_->execute(tool, parameters, async ? Output::discarded : Output::piped);
  if (execution.output != nullptr) readToEnd(*execution.output);
  // A broken session would refuse everything for the rest of the process; without it the next call
  // asks for a new one.
  if (execution.status == platform::privilege::kSessionLost) forgetSession();
  return execution.status;
}

bool QVAuthorization::runTool(const std::string& tool, const std::vector<std::string>& parameters) {
  if (!isSuperuser()) return authExecTask(tool, parameters) == 0;
  return startAsSuperuser(tool, parameters);
}

// As authExecTask, but in order for the superuser too.
int QVAuthorization::execFileTool(const std::string& tool,
                                  const std::vector<std::string>& parameters) {
  if (!isSuperuser() || !file_system::exists(tool)) return authExecTask(tool, parameters);
  return startAsSuperuser(tool, parameters) ? 0 : platform::privilege::kUnsafe;
}

bool QVAuthorization::startAsSuperuser(const std::string& tool,
                                       const std::vector<std::string>& parameters) {
  const int status = startInOrder(tool, parameters);
  if (status == 0) return true;
  if (status == platform::privilege::kUnsafe ||
      !platform::privilege::isSafeAlone(tool, parameters)) {
    console::log("Unable to run %@ on %@ because others may change the way there", tool,
                 parameters.back());
    return false;
  }
  // Nobody watches over it, so it is waited for: what comes next must not meet it half-way.
  if (file_system::exists(tool)) {
    QVTaskEx::runTask(tool, parameters);
  } else {
    startUnwatched(tool, parameters);
  }
  return true;
}

int QVAuthorization::startInOrder(const std::string& tool,
                                  const std::vector<std::string>& parameters) {
  if (ownTools_ == nullptr) {
    std::shared_ptr<Session> made = Session::create().session;
    if (made == nullptr || made->askForRights() != Outcome::granted) {
      return platform::privilege::kSessionLost;
    }
    ownTools_ = std::move(made);
  }
  const int status = ownTools_->execute(tool, parameters, Output::discarded).status;
  if (status == platform::privilege::kSessionLost) ownTools_ = nullptr;
  return status;
}

bool QVAuthorization::authRemoveFile(const Path& path) {
  if (isSystemDirectory(path)) {
    console::log("Unable to delete path %@ because it is a system directory.", path);
    return false;
  }
  return path::namesItem(path) && execFileTool(kRemove, {"-Rdf", *path}) == 0;
}

bool QVAuthorization::authMoveFile(const Path& oldPath, const Path& newPath) {
  if (!oldPath) {
    console::log("Error in authMoveFile: old path is null");
    return false;
  }
  if (!newPath) {
    console::log("Error in authMoveFile: new path is null");
    return false;
  }
  if (isSystemDirectory(oldPath)) {
    console::log("Unable to move path %@ because it is a system directory.", oldPath);
    return false;
  }
  if (!path::namesItem(oldPath) || !isUsable(newPath) || !file_system::exists(*oldPath)) {
    return false;
  }
  return runTool(kMove, {"-f", *oldPath, *newPath});
}

bool QVAuthorization::authCopyFile(const Path& oldPath, const Path& newPath) {
  if (!oldPath) {
    console::log("Error in authCopyFile: old path is null");
    return false;
  }
  if (!newPath) {
    console::log("Error in authCopyFile: new path is null");
    return false;
  }
  if (!isUsable(oldPath) || !isUsable(newPath) || !file_system::exists(*oldPath)) return false;
  return runTool(kCopy, {"-f", "-p", "-R", *oldPath, *newPath});
}

bool QVAuthorization::authCreateDir(const Path& path) {
  if (!isUsable(path)) return false;
  const bool superuser = isSuperuser();
  if (!runTool(kMakeDirectory, {"-p", *path})) return false;
  if (!superuser) platform::clock::sleep(kPauseAfterMakingDirectory);
  return true;
}

// Where an item lands in the Trash: under its own name or, when that is taken, under one with the
// time in it, which ends in a bare dot when the item has no extension.
QVAuthorization::Path QVAuthorization::trashPathFor(const std::string& item) const {
  const std::string name = path::lastComponent(item);
  Path destination = isSuperuser() && userDirectory_
                         ? Path(path::appending(*userDirectory_ + "/.Trash", name))
                         : path::appending(QVLocalPaths::trashDirectory(), name);
  if (destination && file_system::exists(*destination)) {
    destination = platform::formatted("%@_%@.%@", path::deletingExtension(*destination),
                                      platform::date::timeStamp(std::chrono::system_clock::now()),
                                      path::extension(item));
  }
  return destination;
}

bool QVAuthorization::authTrashFile(const Path& path, bool deleteOnRootAccount) {
  if (isSystemDirectory(path)) {
    console::log("Unable to trash path %@ because it is a system directory.", path);
    return false;
  }
  if (!path::namesItem(path)) return false;
  const Path destination = trashPathFor(*path);
  if (deleteOnRootAccount && !userDirectory_ && isSuperuser()) return authRemoveFile(destination);
  // Without one the tool would find no folder to move into, and into one that is not this person's
  // it must not move anything.
  if (destination && !platform::workspace::makeTrash(path::deletingLastComponent(*destination))) {
    return false;
  }
  return authMoveFile(path, destination);
}

bool QVAuthorization::trashEntry(const std::string& path, bool deleteOnRootAccount) {
  if (deleteOnRootAccount && !userDirectory_ && isSuperuser()) {
    return execFileTool(kRemove, {"-R", "-f", path}) == 0;
  }
  return authTrashFile(path);
}

bool QVAuthorization::authTrashFolderContents(const Path& folder, bool deleteOnRootAccount) {
  if (isSystemDirectory(folder)) {
    console::log("Unable to trash folder contents of path %@ because it is a system directory.",
                 folder);
    return false;
  }
  if (!isUsable(folder)) return false;
  bool allDone = true;
  for (const std::string& name : file_system::list(*folder).value_or(std::vector<std::string>())) {
    allDone = trashEntry(path::appending(*folder, name), deleteOnRootAccount) && allDone;
  }
  return allDone;
}

bool QVAuthorization::authMoveFolderContents(const Path& source, const Path& destination) {
  if (isSystemDirectory(source)) {
    console::log("Unable to move contents of path %@ because it is a system directory.", source);
    return false;
  }
  if (!isUsable(source)) return false;
  bool allDone = true;
  for (const std::string& name : file_system::list(*source).value_or(std::vector<std::string>())) {
    allDone =
        authMoveFile(path::appending(*source, name), path::appending(destination, name)) && allDone;
  }
  return allDone;
}
