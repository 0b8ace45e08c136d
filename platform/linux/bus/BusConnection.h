#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace platform {

struct BusMessageUnref {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using BusMessage = std::unique_ptr<sd_bus_message, BusMessageUnref>;

// A connection of its own to the person's session bus or to the system's bus. Nothing that the bus
// or its members do, or leave undone, holds a call longer than its limit: it then raises
// platform::Exception (kPortTimeout). A connection that breaks raises it with kInvalidSendPort.
// What others send to this connection unasked is thrown away as it comes. One thread at a time.
class BusConnection {
 public:
  static constexpr std::chrono::milliseconds kPatience{1000};

  // Null when there is no bus, or when it does not let this user in. The bus is the one that the
  // environment names, or the one of the login; none is ever started for this.
  static std::unique_ptr<BusConnection> open();
  // The same for the bus of the system's services, which has one place on every machine.
  static std::unique_ptr<BusConnection> openSystem();

  // What each later call may take, instead of kPatience.
  void setLimit(std::chrono::milliseconds limit) { limit_ = limit; }

  // A call of a method of an object; nobody is started to answer it. Null when a name is none that
  // the bus allows.
  BusMessage newCall(const std::string& owner, const std::string& object,
                     const std::string& interface, const std::string& method);

  // Sends the call and answers what came back, an error or not.
  BusMessage call(const BusMessage& message);
  // Sends the call, which nobody will answer.
  void send(const BusMessage& message);

 private:
  struct Close {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  };
  using Connection = std::unique_ptr<sd_bus, Close>;

  static std::unique_ptr<BusConnection> open(const std::string& address);
  explicit BusConnection(Connection bus) : bus_(std::move(bus)) {}
  // Works on the connection until `done` holds.
  void workUntil(const std::function<bool()>& done);

  const Connection bus_;
  std::chrono::milliseconds limit_ = kPatience;
};

}  // namespace platform
