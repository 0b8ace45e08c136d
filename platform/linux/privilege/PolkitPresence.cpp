#include "platform/linux/privilege/PolkitPresence.h"

#include <systemd/sd-bus.h>

#include <memory>

namespace platform {
namespace {

struct Closer {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

using Bus = std::unique_ptr<sd_bus, Closer>;
using Message = std::unique_ptr<sd_bus_message, Closer>;

constexpr char kService[] = "org.freedesktop.PolicyKit1";
constexpr char kObject[] = "/org/freedesktop/PolicyKit1/Authority";

// A property is answered by the service itself; a mere ping would be by its bus library, also when
// the service hangs.
Message question(sd_bus* bus) {
  sd_bus_message* message = nullptr;
  if (sd_bus_message_new_method_call(bus, &message, kService, kObject,
                                     "org.freedesktop.DBus.Properties", "Get") < 0) {
    return nullptr;
  }
  Message result(message);
  if (sd_bus_message_append(message, "ss", "org.freedesktop.PolicyKit1.Authority",
                            "BackendVersion") < 0) {
    return nullptr;
  }
  return result;
}

}  // namespace

bool polkitAnswers(std::chrono::microseconds limit) {
  sd_bus* connection = nullptr;
  if (sd_bus_open_system(&connection) < 0) return false;
  const Bus bus(connection);
  const Message asked = question(bus.get());
  if (asked == nullptr) return false;
  sd_bus_message* answer = nullptr;
  const int result = sd_bus_call(bus.get(), asked.get(), static_cast<std::uint64_t>(limit.count()),
                                 nullptr, &answer);
  const Message owned(answer);
  return result >= 0;
}

}  // namespace platform
