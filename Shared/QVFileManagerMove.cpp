#include "Shared/ExistenceWait.h"
#include "Shared/QVAuthorization.h"
#include "Shared/QVFileManager.h"
#include "Shared/QVLocalPaths.h"
#include "Shared/QVLog.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/Text.h"

namespace {

namespace file_system = platform::file_system;
namespace path_rules = platform::path;

constexpr platform::clock::Seconds kPauseAfterCaseOnlyRename = std::chrono::microseconds(500);

bool differOnlyInCase(const std::string& one, const std::string& other) {
  return platform::text::lowercased(one) == platform::text::lowercased(other);
}

// The contents are unlocked where the item would be if the destination were the folder that it goes
// into; for a destination that is the item's own new path there is nothing at that place.
void unlockDestination(const std::string& source, const std::string& destination) {
  if (QVFileManager::fileExistsAtPath(destination)) QVFileManager::unlockFile(destination);
  QVFileManager::unlockFolder(
      path_rules::appending(destination, path_rules::lastComponent(source)));
}

// Whether something other than the item has the new name: a link that leads nowhere may, to which
// every question about what is there answers no.
bool isLinkOfAnother(const std::string& source, const std::string& destination) {
  const auto target = file_system::symbolicLinkTarget(destination);
  return target && target != file_system::symbolicLinkTarget(source);
}

enum class TwoSteps { done, notPossible, nameIsAnothers };

// Where letter case does not tell names apart, a direct move would find its destination taken.
TwoSteps moveByWayOfAnotherName(const std::string& source, const std::string& destination) {
  const std::string between = QVFileManager::uniqueFilename(destination);
  if (!file_system::move(source, between).ok()) {
    return isLinkOfAnother(source, destination) ? TwoSteps::nameIsAnothers : TwoSteps::notPossible;
  }
  if (file_system::move(between, destination).ok()) return TwoSteps::done;
  // While the item is away, what has its new name is another one.
  const bool taken = file_system::attributes(destination).has_value();
  // Nothing may stay behind under a name that nobody has asked for.
  static_cast<void>(file_system::move(between, source).ok());
  return taken ? TwoSteps::nameIsAnothers : TwoSteps::notPossible;
}

}  // namespace

// static
bool QVFileManager::moveFile(const Path& source, const Path& destination) {
  return moveFile(source, destination, true);
}

// static
bool QVFileManager::moveFile(const Path& source, const Path& destination, bool shouldAuth) {
  if (!path_rules::namesItem(source) || !path_rules::namesItem(destination)) return false;
  unlockDestination(*source, *destination);
  const TwoSteps steps = differOnlyInCase(*source, *destination)
                             ? moveByWayOfAnotherName(*source, *destination)
                             : TwoSteps::notPossible;
  if (steps == TwoSteps::done) return true;
  const platform::Status status = file_system::move(*source, *destination);
  if (status.ok()) return true;
  QVLog::appendLog("Error moving file: %@.", status.description());
  // A tool would put the item in the other one's place.
  if (!shouldAuth || steps == TwoSteps::nameIsAnothers) return false;
  QVLog::appendLog("Authorizing...");
  return QVAuthorization::sharedController().authMoveFile(source, destination);
}

// static
bool QVFileManager::moveFile(const Path& source, const Path& destination,
                             std::chrono::seconds timeout) {
  if (!moveFile(source, destination)) return false;
  if (!differOnlyInCase(*source, *destination)) return isGoneWithin(*source, timeout);
  // Where letter case does not tell names apart, the source is still there.
  platform::clock::sleep(kPauseAfterCaseOnlyRename);
  return true;
}

// static
bool QVFileManager::createEmptyFile(const Path& path) {
  const std::string made = QVLocalPaths::tempFile();
  if (!file_system::writeAtomically(made, "").ok()) return false;
  if (moveFile(made, path)) return true;
  static_cast<void>(file_system::remove(made).ok());
  return false;
}
