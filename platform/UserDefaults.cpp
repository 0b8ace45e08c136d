#include "platform/UserDefaults.h"

#include <map>
#include <mutex>
#include <string_view>
#include <utility>

#include "platform/Bundle.h"
#include "platform/Directories.h"
#include "platform/FileSystem.h"
#include "platform/FolderLock.h"
#include "platform/NoDestructor.h"
#include "platform/Path.h"
#include "platform/ProcessInfo.h"

namespace platform::user_defaults {
namespace {

using namespace std::chrono_literals;

// Another process holds the lock while it writes one small file.
constexpr auto kLongestWait = 2000ms;

struct State {
  std::mutex mutex;
  // By key, from the command line; guarded by mutex.
  std::map<std::string, std::string> arguments;
  // What was stored and is not yet on disk; guarded by mutex.
  PropertyList::Dictionary unsaved;
};

State& state() {
  static NoDestructor<State> state;
  return *state;
}

// The name under which the application keeps its defaults.
std::string domain() {
  const auto identifier = Bundle::main().identifier();
  const bool usable = identifier && !identifier->empty() && !identifier->starts_with('.') &&
                      identifier->find('/') == std::string::npos;
  return usable ? *identifier : process_info::processName();
}

std::optional<std::string> folder() {
  const auto libraries =
      directories::searchPaths(directories::Kind::library, directories::DomainMask::user);
  if (libraries.empty()) return std::nullopt;
  return path::appending(libraries.front(), "Preferences");
}

std::optional<std::string> file() {
  return path::appending(folder(), domain() + ".plist");
}

PropertyList::Dictionary savedValues() {
  const auto path = file();
  auto values = path ? property_list::read(*path) : std::nullopt;
  return values ? std::move(*values) : PropertyList::Dictionary();
}

bool save(const std::string& folder, const std::string& path,
          const PropertyList::Dictionary& unsaved) {
  if (!file_system::createDirectory(folder).ok()) return false;
  const auto lock = FolderLock::acquire(folder, kLongestWait);
  if (!lock) return false;
  property_list::setAsideDamaged(path);
  auto values = savedValues();
  for (const auto& [key, value] : unsaved) values.insert_or_assign(key, value);
  return property_list::write(path, values, property_list::Format::binary).ok();
}

}  // namespace

void setArguments(int argc, const char* const* argv) {
  std::map<std::string, std::string> arguments;
  for (int i = 1; i + 1 < argc && argv[i] != nullptr && argv[i + 1] != nullptr; ++i) {
    const std::string_view word = argv[i];
    if (word.size() < 2 || !word.starts_with('-')) continue;
    arguments.insert_or_assign(std::string(word.substr(1)), argv[++i]);
  }
  const std::lock_guard lock(state().mutex);
  state().arguments = std::move(arguments);
}

std::optional<PropertyList> object(const std::string& key) {
  const std::lock_guard lock(state().mutex);
  const auto argument = state().arguments.find(key);
  if (argument != state().arguments.end()) return PropertyList(argument->second);
  const auto unsaved = state().unsaved.find(key);
  if (unsaved != state().unsaved.end()) return unsaved->second;
  auto values = savedValues();
  const auto saved = values.find(key);
  if (saved == values.end()) return std::nullopt;
  return std::move(saved->second);
}

std::optional<std::string> string(const std::string& key) {
  const auto value = object(key);
  const auto* text = value ? value->get<std::string>() : nullptr;
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

bool boolean(const std::string& key) {
  const auto value = object(key);
  return value && value->boolValue();
}

void setObject(const std::string& key, PropertyList value) {
  const std::lock_guard lock(state().mutex);
  state().unsaved.insert_or_assign(key, std::move(value));
}

bool synchronize() {
  const std::lock_guard lock(state().mutex);
  if (state().unsaved.empty()) return true;
  const auto home = folder();
  const auto path = file();
  if (!home || !path || !save(*home, *path, state().unsaved)) return false;
  state().unsaved.clear();
  return true;
}

}  // namespace platform::user_defaults
