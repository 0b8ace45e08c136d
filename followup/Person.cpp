#include "followup/Person.h"

#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Directories.h"

namespace followup {
namespace {

using Environment = std::map<std::string, std::string>;

struct Person {
  uid_t userId;
  gid_t groupId;
  std::string name;
  std::string home;
  std::string shell;
};

// What a program needs to find the person's screen, bus, language and way of typing.
constexpr std::array<std::string_view, 16> kSessionVariables = {
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
    "XDG_RUNTIME_DIR",
};
constexpr char kDefaultPath[] = "/usr/local/bin:/usr/bin:/bin:/usr/local/games:/usr/games";

bool isSuperuser() {
  return ::getuid() == 0 || ::geteuid() == 0;
}

std::optional<std::string> inherited(const std::string& variable) {
  const char* value = std::getenv(variable.c_str());
  if (value == nullptr) return std::nullopt;
  return value;
}

bool isHome(std::string_view variable) {
  return variable == "XDG_CACHE_HOME" || variable == "XDG_CONFIG_HOME" ||
         variable == "XDG_DATA_HOME" || variable == "XDG_STATE_HOME";
}

std::optional<Person> describe(const passwd* entry) {
  if (entry == nullptr) return std::nullopt;
  return Person{entry->pw_uid, entry->pw_gid, entry->pw_name, entry->pw_dir, entry->pw_shell};
}

std::optional<Person> callingPerson() {
  std::optional<Person> person = describe(::getpwuid(::getuid()));
  if (!person) person = Person{::getuid(), ::getgid(), "", "/", "/bin/sh"};
  if (const auto home = inherited("HOME"); home && home->starts_with('/')) person->home = *home;
  return person;
}

std::optional<Person> consolePerson() {
  const std::optional<std::string> name = platform::directories::consoleUser();
  std::optional<Person> person = name ? describe(::getpwnam(name->c_str())) : std::nullopt;
  if (!person) std::fputs("followup: nobody is at the console\n", stderr);
  if (person && person->userId == 0) {
    std::fputs("followup: nothing is started as the superuser\n", stderr);
    return std::nullopt;
  }
  return person;
}

// The folder of sockets that the login made for the person, if it is that person's.
std::optional<std::string> runtimeFolder(const Person& person) {
  const std::string standard = "/run/user/" + std::to_string(person.userId);
  for (const std::string& folder : {inherited("XDG_RUNTIME_DIR").value_or(standard), standard}) {
    struct stat status = {};
    if (folder.starts_with('/') && ::lstat(folder.c_str(), &status) == 0 &&
        S_ISDIR(status.st_mode) && status.st_uid == person.userId) {
      return folder;
    }
  }
  return std::nullopt;
}

void takeSessionVariables(Environment& environment, bool own) {
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view pair = *variable;
    const std::string_view name = pair.substr(0, pair.find('='));
    const bool wanted = std::ranges::find(kSessionVariables, name) != kSessionVariables.end() ||
                        name.starts_with("LC_") || name.starts_with("XDG_");
    // The superuser's folders are not the person's.
    if (!wanted || name.size() == pair.size() || (!own && isHome(name))) continue;
    environment[std::string(name)] = pair.substr(name.size() + 1);
  }
}

void setBus(Environment& environment, const std::optional<std::string>& runtime) {
  environment.erase("XDG_RUNTIME_DIR");
  if (!runtime) return;
  environment["XDG_RUNTIME_DIR"] = *runtime;
  const std::string bus = *runtime + "/bus";
  if (!environment.contains("DBUS_SESSION_BUS_ADDRESS") && ::access(bus.c_str(), F_OK) == 0) {
    environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + bus;
  }
}

Environment environmentFor(const Person& person, bool own) {
  Environment environment;
  takeSessionVariables(environment, own);
  setBus(environment, runtimeFolder(person));
  environment["HOME"] = person.home;
  environment["SHELL"] = person.shell;
  environment["PATH"] = own ? inherited("PATH").value_or(kDefaultPath) : kDefaultPath;
  if (!person.name.empty()) environment["USER"] = environment["LOGNAME"] = person.name;
  return environment;
}

bool setEnvironment(const Environment& environment) {
  bool set = ::clearenv() == 0;
  for (const auto& [name, value] : environment) {
    set = ::setenv(name.c_str(), value.c_str(), 1) == 0 && set;
  }
  return set;
}

bool hasOnlyIdsOf(const Person& person) {
  uid_t user[3];
  gid_t group[3];
  if (::getresuid(&user[0], &user[1], &user[2]) != 0) return false;
  if (::getresgid(&group[0], &group[1], &group[2]) != 0) return false;
  return std::ranges::all_of(user, [&](uid_t id) { return id == person.userId; }) &&
         std::ranges::all_of(group, [&](gid_t id) { return id == person.groupId; });
}

bool giveUpRights(const Person& person) {
  const bool given = ::initgroups(person.name.c_str(), person.groupId) == 0 &&
                     ::setresgid(person.groupId, person.groupId, person.groupId) == 0 &&
                     ::setresuid(person.userId, person.userId, person.userId) == 0;
  // Believed only when seen, and when there is no way back.
  const bool gone = given && hasOnlyIdsOf(person) && ::setresuid(0, 0, 0) != 0;
  if (!gone) std::perror("followup: cannot become the console user");
  return gone;
}

void setDefaultSignals() {
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
}

}  // namespace

bool becomePerson() {
  const bool own = !isSuperuser();
  const std::optional<Person> person = own ? callingPerson() : consolePerson();
  if (!person) return false;
  const Environment environment = environmentFor(*person, own);
  if (!own && !giveUpRights(*person)) return false;
  setDefaultSignals();
  ::umask(022);
  if (::chdir(person->home.c_str()) != 0 && ::chdir("/") != 0) return false;
  return setEnvironment(environment);
}

}  // namespace followup
