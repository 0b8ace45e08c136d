#include "Shared/LogFiles.h"

#include "Shared/QVLocalPaths.h"
#include "platform/Console.h"
#include "platform/Format.h"
#include "platform/PersonalFiles.h"
#include "platform/ProcessInfo.h"

namespace log_files {
namespace {

using platform::formatted;

constexpr int kGenerations = 5;

std::string numbered(const std::string& folder, const std::optional<std::string>& appName,
                     int number) {
  return folder + formatted("/%@.%i.log", appName, number);
}

std::optional<std::string> folderInLibrary(bool user) {
  auto library = QVLocalPaths::libraryDirectory(user);
  if (library) *library += "/Logs/Quorvale";
  return library;
}

}  // namespace

std::optional<std::string> folder() {
  return folderInLibrary(true);
}

std::optional<std::string> current(const std::optional<std::string>& appName) {
  const auto folder = folderInLibrary(!platform::process_info::isSuperuser());
  if (!folder) return std::nullopt;
  return numbered(*folder, appName, 1);
}

std::vector<std::string> existing(const std::optional<std::string>& appName) {
  std::vector<std::string> found;
  const auto inFolder = folder();
  if (!inFolder) return found;
  for (int number = 1; number <= kGenerations; ++number) {
    std::string path = numbered(*inFolder, appName, number);
    if (platform::personal_files::exists(path)) found.push_back(std::move(path));
  }
  return found;
}

bool rotate(const std::string& folder, const std::optional<std::string>& appName) {
  namespace personal_files = platform::personal_files;
  const std::string oldest = numbered(folder, appName, kGenerations);
  // Where it cannot be removed, the move into its place says so.
  if (personal_files::exists(oldest)) static_cast<void>(personal_files::remove(oldest));
  for (int number = kGenerations - 1; number >= 1; --number) {
    const std::string from = numbered(folder, appName, number);
    const std::string to = numbered(folder, appName, number + 1);
    if (!personal_files::exists(from) || personal_files::move(from, to).ok()) continue;
    platform::console::print(formatted("Unable to move file %s to %s.\n", from, to));
    return false;
  }
  return true;
}

}  // namespace log_files
