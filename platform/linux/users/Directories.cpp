#include "platform/Directories.h"

#include <cstdlib>
#include <string_view>

#include "platform/FileSystem.h"
#include "platform/Path.h"
#include "platform/ProcessInfo.h"
#include "platform/linux/users/UserDatabase.h"
#include "platform/linux/users/XdgUserDirs.h"

namespace platform::directories {
namespace {

constexpr char kLocalLibrary[] = "/var/lib/quorvale/Library";
constexpr std::uint64_t kLargestSettingsFile = 64 << 10;

// A folder below the home that has a fixed name, or one that the person's settings name.
struct HomeFolder {
  std::string_view name;
  std::string_view settingsKey;
};

std::optional<std::string> absolute(std::string_view path) {
  if (!path.starts_with('/')) return std::nullopt;
  return path::appending("/", path);
}

std::optional<std::string> fromEnvironment(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr ? absolute(value) : std::nullopt;
}

std::optional<HomeFolder> folderInHome(Kind kind) {
  switch (kind) {
    case Kind::application:
      return HomeFolder{"Applications", {}};
    case Kind::adminApplication:
      return HomeFolder{"Applications/Utilities", {}};
    case Kind::library:
      return HomeFolder{"Library", {}};
    case Kind::caches:
      return HomeFolder{"Library/Caches", {}};
    case Kind::applicationSupport:
      return HomeFolder{"Library/Application Support", {}};
    case Kind::documents:
      return HomeFolder{"Documents", "XDG_DOCUMENTS_DIR"};
    case Kind::desktop:
      return HomeFolder{"Desktop", "XDG_DESKTOP_DIR"};
    case Kind::movies:
      return HomeFolder{"Videos", "XDG_VIDEOS_DIR"};
    case Kind::documentation:
      break;
  }
  return std::nullopt;
}

// The folder of a person's settings files. The superuser's own environment says nothing about the
// person at the console.
std::optional<std::string> settingsFolder() {
  if (!process_info::isSuperuser()) {
    if (auto folder = fromEnvironment("XDG_CONFIG_HOME")) return folder;
    return path::appending(homeDirectory(), ".config");
  }
  const auto person = consoleUser();
  return person ? path::appending(homeDirectoryForUser(*person), ".config") : std::nullopt;
}

std::optional<std::string> namedBySettings(std::string_view key, const std::string& home) {
  const auto folder = settingsFolder();
  if (!folder) return std::nullopt;
  const auto contents =
      file_system::read(path::appending(*folder, "user-dirs.dirs"), kLargestSettingsFile);
  if (!contents) return std::nullopt;
  const auto accept = process_info::isSuperuser() ? xdg_user_dirs::Accept::belowHome
                                                  : xdg_user_dirs::Accept::anyAbsolute;
  return xdg_user_dirs::lookUp(*contents, key, home, accept);
}

std::optional<std::string> userPath(Kind kind) {
  const auto folder = folderInHome(kind);
  const auto home = homeDirectory();
  if (!folder || !home) return std::nullopt;
  if (!folder->settingsKey.empty()) {
    if (auto named = namedBySettings(folder->settingsKey, *home)) return named;
  }
  return path::appending(*home, folder->name);
}

std::optional<std::string> localPath(Kind kind) {
  switch (kind) {
    case Kind::application:
      return "/opt";
    case Kind::adminApplication:
      return "/opt/Utilities";
    case Kind::library:
      return kLocalLibrary;
    case Kind::caches:
      return path::appending(kLocalLibrary, "Caches");
    case Kind::applicationSupport:
      return path::appending(kLocalLibrary, "Application Support");
    case Kind::documentation:
      return "/usr/local/share/doc";
    case Kind::documents:
    case Kind::desktop:
    case Kind::movies:
      break;
  }
  return std::nullopt;
}

std::optional<std::string> systemPath(Kind kind) {
  if (kind == Kind::library) return "/System/Library";
  return std::nullopt;
}

std::optional<std::string> pathIn(Kind kind, DomainMask domain) {
  switch (domain) {
    case DomainMask::user:
      return userPath(kind);
    case DomainMask::local:
      return localPath(kind);
    case DomainMask::system:
      return systemPath(kind);
  }
  return std::nullopt;
}

std::optional<std::string> homeOf(const std::optional<user_database::User>& user) {
  return user ? absolute(user->home) : std::nullopt;
}

}  // namespace

std::vector<std::string> searchPaths(Kind kind, DomainMask domain) {
  auto path = pathIn(kind, domain);
  if (!path) return {};
  return {std::move(*path)};
}

std::string temporaryDirectory() {
  return fromEnvironment("TMPDIR").value_or("/tmp");
}

std::optional<std::string> userCacheDirectory() {
  if (!process_info::isSuperuser()) {
    if (auto folder = fromEnvironment("XDG_CACHE_HOME")) return folder;
  }
  return path::appending(homeDirectory(), ".cache");
}

std::optional<std::string> homeDirectory() {
  if (process_info::isSuperuser()) return superuserHome();
  if (auto home = fromEnvironment("HOME")) return home;
  return homeOf(user_database::byId(process_info::userId()));
}

std::optional<std::string> homeDirectoryForUser(const std::string& userName) {
  return homeOf(user_database::byName(userName));
}

std::optional<std::string> userName() {
  const auto user = user_database::byId(process_info::userId());
  if (!user || user->name.empty()) return std::nullopt;
  return user->name;
}

std::optional<std::string> superuserHome() {
  return homeOf(user_database::byId(process_info::kSuperuser));
}

}  // namespace platform::directories
