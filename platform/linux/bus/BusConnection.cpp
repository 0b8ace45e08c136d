#include "platform/linux/bus/BusConnection.h"

#include <poll.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "platform/Exception.h"
#include "platform/linux/SystemError.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

// Whatever the environment says: the superuser may have it from anybody.
constexpr char kSystemAddress[] = "unix:path=/run/dbus/system_bus_socket";

[[noreturn]] void raiseTimeout() {
  throw Exception(exception_name::kPortTimeout, "the bus did not answer in time");
}

[[noreturn]] void raiseBroken(int error) {
  throw Exception(exception_name::kInvalidSendPort,
                  "the connection to the bus broke: " + errorText(-error));
}

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// The entries of an address that are sockets. Others could have a program started.
std::string socketsOf(const std::string& address) {
  std::string sockets;
  std::istringstream entries(address);
  for (std::string entry; std::getline(entries, entry, ';');) {
    if (entry.starts_with("unix:")) sockets += (sockets.empty() ? "" : ";") + entry;
  }
  return sockets;
}

std::string escapedForAddress(const std::string& path) {
  std::string result;
  constexpr char kDigits[] = "0123456789abcdef";
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || std::string("-_/.\\").find(c) != std::string::npos) {
      result += c;
    } else {
      result += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return result;
}

std::string sessionAddress() {
  const std::string address = variable("DBUS_SESSION_BUS_ADDRESS");
  if (!address.empty()) return socketsOf(address);
  const std::string folder = variable("XDG_RUNTIME_DIR");
  if (!folder.starts_with('/')) return "";
  return "unix:path=" + escapedForAddress(folder + "/bus");
}

int dropMessage(sd_bus_message*, void*, sd_bus_error*) {
  return 1;
}

int keepMessage(sd_bus_message* message, void* kept, sd_bus_error*) {
  static_cast<BusMessage*>(kept)->reset(sd_bus_message_ref(message));
  return 1;
}

}  // namespace

// static
std::unique_ptr<BusConnection> BusConnection::open() {
  return open(sessionAddress());
}

// static
std::unique_ptr<BusConnection> BusConnection::openSystem() {
  return open(kSystemAddress);
}

// static
std::unique_ptr<BusConnection> BusConnection::open(const std::string& address) {
  sd_bus* bus = nullptr;
  if (address.empty() || sd_bus_new(&bus) < 0) return nullptr;
  std::unique_ptr<BusConnection> connection(new BusConnection(Connection(bus)));
  if (sd_bus_set_address(bus, address.c_str()) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
      sd_bus_add_filter(bus, nullptr, dropMessage, nullptr) < 0 || sd_bus_start(bus) < 0) {
    return nullptr;
  }
  try {
    connection->workUntil([bus] { return sd_bus_is_ready(bus) > 0; });
  } catch (const Exception& exception) {
    if (exception.name() == exception_name::kPortTimeout) throw;
    return nullptr;
  }
  return connection;
}

BusMessage BusConnection::newCall(const std::string& owner, const std::string& object,
                                  const std::string& interface, const std::string& method) {
  sd_bus_message* message = nullptr;
  sd_bus_message_new_method_call(bus_.get(), &message, owner.c_str(), object.c_str(),
                                 interface.c_str(), method.c_str());
  BusMessage call(message);
  if (call) sd_bus_message_set_auto_start(message, 0);
  return call;
}

BusMessage BusConnection::call(const BusMessage& message) {
  BusMessage reply;
  sd_bus_slot* slot = nullptr;
  // Its own time-out would be told as an answer; the one here is ours.
  const int sent =
      sd_bus_call_async(bus_.get(), &slot, message.get(), keepMessage, &reply, UINT64_MAX);
  if (sent < 0) raiseBroken(sent);
  // A late answer must not find the reply gone.
  const std::unique_ptr<sd_bus_slot, decltype(&sd_bus_slot_unref)> pending(slot, sd_bus_slot_unref);
  workUntil([&] { return reply != nullptr; });
  return reply;
}

void BusConnection::send(const BusMessage& message) {
  sd_bus_message_set_expect_reply(message.get(), 0);
  const int sent = sd_bus_send(bus_.get(), message.get(), nullptr);
  if (sent < 0) raiseBroken(sent);
  workUntil([this] { return (sd_bus_get_events(bus_.get()) & POLLOUT) == 0; });
}

void BusConnection::workUntil(const std::function<bool()>& done) {
  const auto end = Clock::now() + limit_;
  while (!done()) {
    const int worked = sd_bus_process(bus_.get(), nullptr);
    if (worked < 0) raiseBroken(worked);
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - Clock::now());
    if (left.count() <= 0) raiseTimeout();
    if (worked > 0) continue;
    const int waited = sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(left.count()));
    if (waited < 0 && waited != -EINTR) raiseBroken(waited);
  }
}

}  // namespace platform
