// AccessibilityReader <application>: prints what a screen reader is told of an application, found
// on the accessibility bus of the session bus in the environment: a line for each object of its
// tree, indented, with role, name and description between bars, and for a progress indicator
// whether its value is one.
#include <systemd/sd-bus.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr char kRoot[] = "/org/a11y/atspi/accessible/root";
constexpr char kAccessible[] = "org.a11y.atspi.Accessible";

struct BusCloser {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
struct MessageReleaser {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;
using Message = std::unique_ptr<sd_bus_message, MessageReleaser>;

struct Object {
  std::string owner;
  std::string path;
};

Bus openAccessibilityBus() {
  sd_bus* session = nullptr;
  if (sd_bus_open_user(&session) < 0) return nullptr;
  const Bus sessionBus(session);
  sd_bus_message* reply = nullptr;
  const char* address = nullptr;
  if (sd_bus_call_method(session, "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress",
                         nullptr, &reply, "") < 0) {
    return nullptr;
  }
  const Message message(reply);
  sd_bus* bus = nullptr;
  if (sd_bus_message_read(reply, "s", &address) < 0 || sd_bus_new(&bus) < 0) return nullptr;
  Bus opened(bus);
  if (sd_bus_set_address(bus, address) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
      sd_bus_start(bus) < 0) {
    return nullptr;
  }
  return opened;
}

std::vector<Object> childrenOf(sd_bus* bus, const Object& object) {
  std::vector<Object> children;
  sd_bus_message* reply = nullptr;
  if (sd_bus_call_method(bus, object.owner.c_str(), object.path.c_str(), kAccessible, "GetChildren",
                         nullptr, &reply, "") < 0) {
    return children;
  }
  const Message message(reply);
  const char* owner = nullptr;
  const char* path = nullptr;
  sd_bus_message_enter_container(reply, 'a', "(so)");
  while (sd_bus_message_read(reply, "(so)", &owner, &path) > 0) children.push_back({owner, path});
  return children;
}

std::string property(sd_bus* bus, const Object& object, const char* name) {
  char* value = nullptr;
  if (sd_bus_get_property_string(bus, object.owner.c_str(), object.path.c_str(), kAccessible, name,
                                 nullptr, &value) < 0) {
    return {};
  }
  std::string text = value;
  std::free(value);
  return text;
}

std::string roleOf(sd_bus* bus, const Object& object) {
  sd_bus_message* reply = nullptr;
  const char* role = "";
  if (sd_bus_call_method(bus, object.owner.c_str(), object.path.c_str(), kAccessible, "GetRoleName",
                         nullptr, &reply, "") < 0) {
    return {};
  }
  const Message message(reply);
  sd_bus_message_read(reply, "s", &role);
  return role;
}

std::string progressOf(sd_bus* bus, const Object& object, const std::string& role) {
  double value = 0;
  if (role != "progress bar" ||
      sd_bus_get_property_trivial(bus, object.owner.c_str(), object.path.c_str(),
                                  "org.a11y.atspi.Value", "CurrentValue", nullptr, 'd',
                                  &value) < 0) {
    return {};
  }
  return value >= 0 && value <= 1 ? "between 0 and 1" : "out of range";
}

void print(sd_bus* bus, const Object& object, int depth) {
  const std::string role = roleOf(bus, object);
  std::printf("%*s%s|%s|%s|%s\n", depth, "", role.c_str(), property(bus, object, "Name").c_str(),
              property(bus, object, "Description").c_str(), progressOf(bus, object, role).c_str());
  for (const Object& child : childrenOf(bus, object)) print(bus, child, depth + 1);
}

}  // namespace

int main(int count, char** words) {
  const Bus bus = openAccessibilityBus();
  if (count != 2 || bus == nullptr) return 1;
  for (const Object& application : childrenOf(bus.get(), {"org.a11y.atspi.Registry", kRoot})) {
    if (property(bus.get(), application, "Name") == words[1]) print(bus.get(), application, 0);
  }
}
