#include <sys/types.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>

// Usage: PolkitAgent PID answer PASSWORD | dismiss | die
//
// Plays the person at the desktop for one process: registers as its authentication agent, prints
// "ready", and when it is asked prints "asked ACTION" and answers with the password, dismisses the
// dialog, or dies in the middle of it.

namespace {

struct Person {
  std::string_view behaviour;
  std::string password;
};

// Field 22 of /proc/PID/stat, counted behind the name in parentheses (proc(5)).
std::uint64_t startTimeOf(const std::string& pid) {
  std::ifstream file("/proc/" + pid + "/stat");
  std::string text{std::istreambuf_iterator<char>(file), {}};
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string field;
  for (int number = 3; number <= 22; ++number) fields >> field;
  return std::stoull(field);
}

// The authority's own helper checks the password and tells the authority.
bool tellHelper(const std::string& user, const std::string& cookie, const std::string& password) {
  const std::string command = "/usr/lib/polkit-1/polkit-agent-helper-1 " + user + " >/dev/null";
  std::FILE* helper = ::popen(command.c_str(), "w");
  if (helper == nullptr) return false;
  std::fprintf(helper, "%s\n%s\n", cookie.c_str(), password.c_str());
  return ::pclose(helper) == 0;
}

// The name of the first person offered.
std::string firstOffered(sd_bus_message* message) {
  const char* kind = nullptr;
  const char* key = nullptr;
  std::uint32_t id = 0;
  sd_bus_message_enter_container(message, 'a', "(sa{sv})");
  sd_bus_message_enter_container(message, 'r', "sa{sv}");
  sd_bus_message_read(message, "s", &kind);
  sd_bus_message_enter_container(message, 'a', "{sv}");
  sd_bus_message_enter_container(message, 'e', "sv");
  sd_bus_message_read(message, "s", &key);
  sd_bus_message_read(message, "v", "u", &id);
  return "$(getent passwd " + std::to_string(id) + " | cut -d: -f1)";
}

int begin(sd_bus_message* message, void* data, sd_bus_error* error) {
  const auto* person = static_cast<const Person*>(data);
  const char* action = nullptr;
  const char* text = nullptr;
  const char* icon = nullptr;
  const char* cookie = nullptr;
  sd_bus_message_read(message, "sss", &action, &text, &icon);
  sd_bus_message_skip(message, "a{ss}");
  sd_bus_message_read(message, "s", &cookie);
  std::cout << "asked " << action << std::endl;
  if (person->behaviour == "die") ::_exit(EXIT_SUCCESS);
  if (person->behaviour == "dismiss") {
    return sd_bus_error_set(error, "org.freedesktop.PolicyKit1.Error.Cancelled", "Dismissed");
  }
  const std::string user = firstOffered(message);
  if (!tellHelper(user, cookie, person->password)) {
    return sd_bus_error_set(error, "org.freedesktop.PolicyKit1.Error.Failed", "Wrong password");
  }
  return sd_bus_reply_method_return(message, "");
}

int cancel(sd_bus_message* message, void*, sd_bus_error*) {
  return sd_bus_reply_method_return(message, "");
}

const sd_bus_vtable kInterface[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("BeginAuthentication", "sssa{ss}sa(sa{sv})", "", begin,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("CancelAuthentication", "s", "", cancel, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

constexpr char kObject[] = "/agent";

int registerFor(sd_bus* bus, const std::string& pid) {
  return sd_bus_call_method(
      bus, "org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
      "org.freedesktop.PolicyKit1.Authority", "RegisterAuthenticationAgent", nullptr, nullptr,
      "(sa{sv})ss", "unix-process", 3, "pid", "u", static_cast<std::uint32_t>(std::stoul(pid)),
      "start-time", "t", startTimeOf(pid), "uid", "i", static_cast<std::int32_t>(::getuid()), "C",
      kObject);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return EXIT_FAILURE;
  Person person{argv[2], argc > 3 ? argv[3] : ""};
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0 ||
      sd_bus_add_object_vtable(bus, nullptr, kObject,
                               "org.freedesktop.PolicyKit1.AuthenticationAgent", kInterface,
                               &person) < 0 ||
      registerFor(bus, argv[1]) < 0) {
    return EXIT_FAILURE;
  }
  std::cout << "ready" << std::endl;
  while (sd_bus_process(bus, nullptr) >= 0) sd_bus_wait(bus, ~0ULL);
  return EXIT_SUCCESS;
}
