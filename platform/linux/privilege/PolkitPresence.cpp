#include "platform/linux/privilege/PolkitPresence.h"

#include <systemd/sd-bus.h>

#include "platform/Exception.h"
#include "platform/linux/bus/BusConnection.h"

namespace platform {
namespace {

constexpr char kService[] = "org.freedesktop.PolicyKit1";
constexpr char kObject[] = "/org/freedesktop/PolicyKit1/Authority";

// A property is answered by the service itself; a mere ping would be by its bus library, also when
// the service hangs.
BusMessage question(BusConnection& bus) {
  BusMessage call = bus.newCall(kService, kObject, "org.freedesktop.DBus.Properties", "Get");
  if (call == nullptr ||
      sd_bus_message_append(call.get(), "ss", "org.freedesktop.PolicyKit1.Authority",
                            "BackendVersion") < 0) {
    return nullptr;
  }
  // The bus starts the service when it is first spoken to.
  sd_bus_message_set_auto_start(call.get(), 1);
  return call;
}

}  // namespace

bool polkitAnswers(std::chrono::milliseconds limit) {
  try {
    const auto bus = BusConnection::openSystem();
    if (bus == nullptr) return false;
    bus->setLimit(limit - BusConnection::kPatience);
    const BusMessage asked = question(*bus);
    const BusMessage answer = asked ? bus->call(asked) : nullptr;
    return answer != nullptr && sd_bus_message_is_method_error(answer.get(), nullptr) == 0;
  } catch (const Exception&) {
    return false;
  }
}

}  // namespace platform
