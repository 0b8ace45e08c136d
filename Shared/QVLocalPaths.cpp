#include "Shared/QVLocalPaths.h"

#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string_view>

#include "platform/Path.h"
#include "platform/ProcessInfo.h"

namespace path = platform::path;
namespace directories = platform::directories;

namespace {

constexpr std::string_view kAlphabet = "abcdefghijklmnopqrstuvwxyz0123456789";
constexpr std::string_view kNobodyLoggedIn = "loginwindow";

constexpr std::string_view kVarRoot = "/var/root";
constexpr std::string_view kPrivateVarRoot = "/private/var/root";
// One fewer than the prefix has: the "t" stays, as it always has.
constexpr std::size_t kPrivateVarRootCut = 16;

QVLocalPaths::DomainMask domainOf(bool user) {
  return user ? QVLocalPaths::DomainMask::user : QVLocalPaths::DomainMask::local;
}

// What a path in the superuser's home is below that home.
std::string_view belowSuperuserHome(std::string_view folder) {
  const auto home = directories::superuserHome();
  // A home in /private/var/root is left to the literal prefixes.
  if (home && !home->starts_with(kPrivateVarRoot) && folder.starts_with(*home)) {
    folder.remove_prefix(home->size());
  }
  if (folder.starts_with(kVarRoot)) folder.remove_prefix(kVarRoot.size());
  if (folder.starts_with(kPrivateVarRoot)) folder.remove_prefix(kPrivateVarRootCut);
  return folder;
}

unsigned seedOfThisTick() {
  return static_cast<unsigned>(std::clock()) * static_cast<unsigned>(std::time(nullptr));
}

}  // namespace

// static
std::optional<std::string> QVLocalPaths::pathForDirectory(Directory directory, DomainMask domain) {
  const auto paths = directories::searchPaths(directory, domain);
  if (paths.empty()) return std::nullopt;
  if (!platform::process_info::isSuperuser() || domain != DomainMask::user) return paths.front();
  return path::appending(userDirectory(), belowSuperuserHome(paths.front()));
}

// static
std::optional<std::string> QVLocalPaths::applicationDirectory(bool user) {
  return pathForDirectory(Directory::application, domainOf(user));
}

// static
std::optional<std::string> QVLocalPaths::adminApplicationDirectory(bool user) {
  return pathForDirectory(Directory::adminApplication, domainOf(user));
}

// static
std::optional<std::string> QVLocalPaths::documentDirectory(bool user) {
  return pathForDirectory(Directory::documents, domainOf(user));
}

// static
std::optional<std::string> QVLocalPaths::libraryDirectory(bool user) {
  return pathForDirectory(Directory::library, domainOf(user));
}

// static
std::optional<std::string> QVLocalPaths::prefsDirectory(bool user) {
  return path::appending(libraryDirectory(user), "Preferences");
}

// static
std::optional<std::string> QVLocalPaths::cacheDirectory(bool user) {
  return pathForDirectory(Directory::caches, domainOf(user));
}

// static
std::optional<std::string> QVLocalPaths::appSupportDirectory(bool user) {
  return pathForDirectory(Directory::applicationSupport, domainOf(user));
}

// static
std::optional<std::string> QVLocalPaths::movieDirectory() {
  return pathForDirectory(Directory::movies, DomainMask::user);
}

// static
std::optional<std::string> QVLocalPaths::desktopDirectory() {
  return pathForDirectory(Directory::desktop, DomainMask::user);
}

// static
std::optional<std::string> QVLocalPaths::systemLibraryDirectory() {
  return pathForDirectory(Directory::library, DomainMask::system);
}

// static
std::optional<std::string> QVLocalPaths::localDocumentationDirectory() {
  return pathForDirectory(Directory::documentation, DomainMask::local);
}

// static
std::optional<std::string> QVLocalPaths::logDirectory(bool user) {
  return path::appending(libraryDirectory(user), "Logs");
}

// static
std::optional<std::string> QVLocalPaths::trashDirectory() {
  return path::appending(userDirectory(), ".Trash");
}

// static
std::optional<std::string> QVLocalPaths::darwinCacheDirectory() {
  return directories::userCacheDirectory();
}

// static
std::optional<std::string> QVLocalPaths::tempDirectory() {
  return directories::temporaryDirectory();
}

// static
std::optional<std::string> QVLocalPaths::userDirectory() {
  if (!platform::process_info::isSuperuser()) return directories::homeDirectory();
  const auto person = currentConsoleUser();
  return person ? directories::homeDirectoryForUser(*person) : std::nullopt;
}

// static
std::optional<std::string> QVLocalPaths::username() {
  return platform::process_info::isSuperuser() ? currentConsoleUser() : directories::userName();
}

// static
std::optional<std::string> QVLocalPaths::currentConsoleUser() {
  auto person = directories::consoleUser();
  if (person == kNobodyLoggedIn) return std::nullopt;
  return person;
}

// static
std::string QVLocalPaths::uuid() {
  return platform::process_info::globallyUniqueString();
}

// static
std::string QVLocalPaths::randomString(int length) {
  // Holds the C library's generator from seeding to the last draw.
  static std::mutex generator;
  const std::lock_guard lock(generator);
  std::srand(seedOfThisTick());
  std::string result;
  for (int i = 0; i < length; ++i) {
    result += kAlphabet[static_cast<std::size_t>(std::rand()) % kAlphabet.size()];
  }
  return result;
}

// static
std::string QVLocalPaths::tempFile() {
  return path::appending(directories::temporaryDirectory(), uuid() + randomString(8));
}
