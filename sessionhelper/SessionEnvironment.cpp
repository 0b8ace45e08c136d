#include "sessionhelper/SessionEnvironment.h"

#include <sys/stat.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "platform/linux/Allocated.h"

namespace session_helper {
namespace {

constexpr std::array<std::string_view, 15> kSessionVariables = {
    "DBUS_SESSION_BUS_ADDRESS",
    "DESKTOP_SESSION",
    "DESKTOP_STARTUP_ID",
    "DISPLAY",
    "GTK_IM_MODULE",
    "KDE_FULL_SESSION",
    "KDE_SESSION_VERSION",
    "LANG",
    "LANGUAGE",
    "QT_IM_MODULE",
    "SSH_AUTH_SOCK",
    "TZ",
    "WAYLAND_DISPLAY",
    "XAUTHORITY",
    "XMODIFIERS",
};
constexpr char kDefaultPath[] = "/usr/local/bin:/usr/bin:/bin:/usr/local/games:/usr/games";
constexpr std::string_view kRuntimeFolders = "/run/user/";

std::optional<std::string> inherited(const char* variable) {
  const char* value = std::getenv(variable);
  if (value == nullptr) return std::nullopt;
  return value;
}

bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

bool isHome(std::string_view variable) {
  return variable == "XDG_CACHE_HOME" || variable == "XDG_CONFIG_HOME" ||
         variable == "XDG_DATA_HOME" || variable == "XDG_STATE_HOME";
}

bool isWanted(std::string_view variable, bool own) {
  if (isHome(variable)) return own;
  // That one is looked up.
  if (variable == "XDG_RUNTIME_DIR") return false;
  return std::ranges::find(kSessionVariables, variable) != kSessionVariables.end() ||
         variable.starts_with("LC_") || variable.starts_with("XDG_");
}

Environment wantedVariables(bool own) {
  Environment environment;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view pair = *variable;
    const std::string_view name = pair.substr(0, pair.find('='));
    if (name.size() == pair.size() || !isWanted(name, own)) continue;
    environment[std::string(name)] = pair.substr(name.size() + 1);
  }
  return environment;
}

std::string standardRuntimeFolder(const Person& person) {
  return std::string(kRuntimeFolders) + std::to_string(person.id);
}

// The folder of sockets that the login made for the person, if it is that person's.
std::optional<std::string> runtimeFolder(const Person& person) {
  const std::string standard = standardRuntimeFolder(person);
  for (const std::string& folder : {inherited("XDG_RUNTIME_DIR").value_or(standard), standard}) {
    struct stat status = {};
    if (folder.starts_with('/') && ::lstat(folder.c_str(), &status) == 0 &&
        S_ISDIR(status.st_mode) && status.st_uid == person.id) {
      return folder;
    }
  }
  return std::nullopt;
}

// Whether the address is that of another login than the person's, the superuser's for example.
bool isOfAnotherLogin(const std::string& address, const Person& person) {
  return address.find(kRuntimeFolders) != std::string::npos &&
         address.find(standardRuntimeFolder(person) + "/") == std::string::npos;
}

void setBus(Environment& environment, const Person& person,
            const std::optional<std::string>& runtime) {
  constexpr char kBus[] = "DBUS_SESSION_BUS_ADDRESS";
  const auto given = environment.find(kBus);
  if (given != environment.end() && isOfAnotherLogin(given->second, person)) {
    environment.erase(given);
  }
  if (runtime && !environment.contains(kBus) && exists(*runtime + "/bus")) {
    environment[kBus] = "unix:path=" + *runtime + "/bus";
  }
}

// The X display of the session on the screen, as the login keeps it.
std::optional<std::string> recordedDisplay() {
  char* text = nullptr;
  if (sd_seat_get_active("seat0", &text, nullptr) < 0) return std::nullopt;
  const platform::Allocated<char> session(text);
  if (sd_session_get_display(session.get(), &text) < 0) return std::nullopt;
  const platform::Allocated<char> display(text);
  return display.get();
}

// Where neither screen is named, a service started this process: the usual places are tried.
void findScreen(Environment& environment, const std::optional<std::string>& runtime) {
  if (environment.contains("DISPLAY") || environment.contains("WAYLAND_DISPLAY")) return;
  if (const auto display = recordedDisplay()) environment["DISPLAY"] = *display;
  if (!runtime) return;
  if (exists(*runtime + "/wayland-0")) environment["WAYLAND_DISPLAY"] = "wayland-0";
  const std::string authority = *runtime + "/gdm/Xauthority";
  if (!environment.contains("XAUTHORITY") && exists(authority)) {
    environment["XAUTHORITY"] = authority;
  }
}

}  // namespace

Environment sessionEnvironment(const Person& person, bool own) {
  Environment environment = wantedVariables(own);
  const std::optional<std::string> runtime = runtimeFolder(person);
  if (runtime) environment["XDG_RUNTIME_DIR"] = *runtime;
  setBus(environment, person, runtime);
  if (!own) findScreen(environment, runtime);
  environment["HOME"] = person.home;
  environment["SHELL"] = person.shell;
  environment["PATH"] = own ? inherited("PATH").value_or(kDefaultPath) : kDefaultPath;
  if (!person.name.empty()) environment["USER"] = environment["LOGNAME"] = person.name;
  return environment;
}

}  // namespace session_helper
