#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Bundle.h"
#include "platform/Directories.h"
#include "platform/Exception.h"
#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/ProcessInfo.h"
#include "platform/Task.h"
#include "platform/Workspace.h"
#include "platform/linux/SessionHelperVerbs.h"
#include "platform/linux/desktop/DesktopEntry.h"
#include "platform/linux/personal/PersonsChild.h"
#include "platform/linux/tasks/SessionHelper.h"
#include "platform/linux/users/PlaceOwner.h"
#include "platform/linux/users/SuperusersAlone.h"
#include "platform/linux/users/UserDatabase.h"

namespace platform::workspace {
namespace {

using session_helper::Handover;

constexpr char kLocalEntries[] = "/usr/local/share/applications";
constexpr char kDatabaseTool[] = "/usr/bin/update-desktop-database";
constexpr std::uint64_t kLargestEntry = 1U << 20;
// Everybody's desktop reads them, whatever the umask of this process is.
constexpr mode_t kEntryPermissions = 0644;

// Where the calling user's entries stand: the XDG Base Directory Specification's data home.
std::optional<std::string> entriesFolder() {
  if (process_info::isSuperuser()) return kLocalEntries;
  const char* dataHome = std::getenv("XDG_DATA_HOME");
  if (dataHome != nullptr && *dataHome == '/') return std::string(dataHome) + "/applications";
  return path::appending(directories::homeDirectory(), ".local/share/applications");
}

// Desktops find out what opens a kind of file through this cache. It is made beside the run; an
// absent tool only means that there is no such cache.
void refreshDatabase(const std::string& folder) {
  if (!file_system::isExecutable(kDatabaseTool)) return;
  const std::shared_ptr<Task> task = Task::create();
  task->setLaunchPath(kDatabaseTool);
  task->setArguments({"--quiet", folder});
  task->setStandardInput(Task::End::nullDevice);
  task->setStandardOutput(Task::End::nullDevice);
  task->setStandardError(Task::End::nullDevice);
  try {
    task->launch();
  } catch (const Exception&) {
    // The entry stands; only the cache is older.
  }
}

// Where the superuser registers nothing, but where desktops look for entries, too. Of two entries
// of one name they show that of the first folder: an application must not take another's place by
// calling itself by its name.
constexpr const char* kOtherEntries[] = {"/usr/local/share/applications", "/usr/share/applications",
                                         "/var/lib/flatpak/exports/share/applications",
                                         "/var/lib/snapd/desktop/applications"};

bool isTakenElsewhere(const std::string& folder, const std::string& name) {
  return std::ranges::any_of(kOtherEntries, [&](const std::string& other) {
    const std::string file = other + "/" + name;
    if (other == folder || !file_system::attributes(file)) return false;
    const std::optional<std::string> entry = file_system::read(file, kLargestEntry);
    return !entry || !desktop_entry::isOurs(*entry);
  });
}

// An entry that the person or a package wrote under the same name stays.
bool mayReplace(const std::string& file) {
  if (!file_system::attributes(file)) return true;
  const std::optional<std::string> old = file_system::read(file, kLargestEntry);
  return old && desktop_entry::isOurs(*old);
}

bool writeEntry(const std::string& folder, const std::string& name, const std::string& entry) {
  const std::string file = folder + "/" + name;
  return !isTakenElsewhere(folder, name) && mayReplace(file) &&
         file_system::writeAtomically(file, entry).ok() &&
         ::chmod(file.c_str(), kEntryPermissions) == 0;
}

// The person at the console, or else whoever owns the bundle; never the superuser.
std::optional<std::uint32_t> personFor(const std::string& bundlePath) {
  const auto name = directories::consoleUser();
  if (!name) return reach(bundlePath).owner;
  const auto person = user_database::byName(*name);
  if (!person || person->id == process_info::kSuperuser) return std::nullopt;
  return person->id;
}

// What others can change is not for everybody: it is registered by a child that is the person, in
// that person's own folder.
bool registerForPerson(const std::string& bundlePath) {
  const auto person = personFor(bundlePath);
  if (!person) return false;
  const auto answer =
      personal::PersonsChild::of(*person).ask({personal::operation::kRegister, bundlePath});
  return answer.front() == personal::kYes;
}

}  // namespace

bool registerApplication(const std::string& bundlePath) {
  if (!bundlePath.starts_with('/')) return false;
  const auto handover =
      session_helper::handOver(helper_verb::words(helper_verb::Register{bundlePath}), {bundlePath});
  if (handover != Handover::notNeeded) return handover == Handover::accepted;
  if (process_info::isSuperuser() && !isSuperusersAlone(bundlePath)) {
    return registerForPerson(bundlePath);
  }
  const std::optional<Bundle> bundle = Bundle::at(bundlePath);
  if (!bundle) return false;
  const auto application = desktop_entry::describing(*bundle);
  if (!application || !file_system::isExecutable(application->executable)) return false;
  const std::optional<std::string> entry = desktop_entry::serialized(*application);
  const std::optional<std::string> folder = entriesFolder();
  if (!entry || !folder || !file_system::createDirectory(*folder).ok()) return false;
  const std::string name = desktop_entry::fileName(bundle->identifier(), bundlePath);
  if (!writeEntry(*folder, name, *entry)) return false;
  refreshDatabase(*folder);
  return true;
}

}  // namespace platform::workspace
