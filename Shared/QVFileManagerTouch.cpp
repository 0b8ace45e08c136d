#include <chrono>

#include "Shared/QVAuthorization.h"
#include "Shared/QVFileManager.h"
#include "Shared/QVTaskEx.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"

namespace {

namespace file_system = platform::file_system;

constexpr char kTouch[] = "/usr/bin/touch";
constexpr char kNoCreation[] = "-c";
constexpr std::chrono::seconds kTimeout{5};

// An item that is not there is as writable as the folder in which it would be.
bool isWritable(const std::string& path) {
  return file_system::exists(path)
             ? file_system::isWritable(path)
             : file_system::isWritable(platform::path::deletingLastComponent(path));
}

// Where it cannot be set, which is nearly everywhere, the item keeps it.
void setCreationDateToNow(const std::string& path) {
  static_cast<void>(file_system::setCreationDate(path, std::chrono::system_clock::now()).ok());
}

}  // namespace

// static
bool QVFileManager::touchFile(const std::optional<std::string>& path) {
  return touchFile(path, false);
}

// static
bool QVFileManager::touchFile(const std::optional<std::string>& path, bool setCreationDate) {
  if (!path) return false;
  if (isWritable(*path)) {
    QVTaskEx::runTask(kTouch, {{kNoCreation, *path}}, kTimeout);
    if (setCreationDate) setCreationDateToNow(*path);
    return true;
  }
  if (setCreationDate) setCreationDateToNow(*path);
  constexpr bool kAsync = false;
  return QVAuthorization::sharedController().authExecTask(kTouch, {kNoCreation, *path}, kAsync) ==
         0;
}
