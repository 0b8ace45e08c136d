#include "sessionhelper/Person.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "platform/Directories.h"
#include "sessionhelper/SessionEnvironment.h"
#include "sessionhelper/UserIds.h"

namespace session_helper {
namespace {

bool isSuperuser() {
  return ::getuid() == 0 || ::geteuid() == 0;
}

Person callingPerson() {
  Person person = platform::user_database::byId(::getuid())
                      .value_or(Person{"", ::getuid(), ::getgid(), "/", "/bin/sh"});
  if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/') person.home = home;
  return person;
}

std::optional<Person> consolePerson() {
  const std::optional<std::string> name = platform::directories::consoleUser();
  std::optional<Person> person = name ? platform::user_database::byName(*name) : std::nullopt;
  if (!person) std::fputs("session-helper: nobody is at the console\n", stderr);
  if (person && person->id == 0) {
    std::fputs("session-helper: nothing is started as the superuser\n", stderr);
    return std::nullopt;
  }
  return person;
}

bool setEnvironment(const Environment& environment) {
  bool set = ::clearenv() == 0;
  for (const auto& [name, value] : environment) {
    set = ::setenv(name.c_str(), value.c_str(), 1) == 0 && set;
  }
  return set;
}

bool giveUpRights(const Person& person) {
  if (takeIds(person.id, person.groupId, person.name)) return true;
  std::perror("session-helper: cannot become the console user");
  return false;
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
  const Environment environment = sessionEnvironment(*person, own);
  if (!own && !giveUpRights(*person)) return false;
  setDefaultSignals();
  ::umask(022);
  if (::chdir(person->home.c_str()) != 0 && ::chdir("/") != 0) return false;
  return setEnvironment(environment);
}

}  // namespace session_helper
