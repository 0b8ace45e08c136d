#include "platform/linux/bus/BusObject.h"

#include <algorithm>
#include <string_view>

#include "platform/Exception.h"
#include "platform/Text.h"
#include "platform/linux/bus/Introspection.h"

namespace platform {
namespace {

constexpr char kNames[] = "com.quorvale.";
constexpr char kObjects[] = "/com/quorvale/";

// What the bus itself says in place of an answer when a process has gone.
bool hasGone(const std::string_view error) {
  return error == SD_BUS_ERROR_SERVICE_UNKNOWN || error == SD_BUS_ERROR_NAME_HAS_NO_OWNER ||
         error == SD_BUS_ERROR_NO_REPLY || error == SD_BUS_ERROR_DISCONNECTED;
}

std::string_view errorOf(const BusMessage& reply) {
  const sd_bus_error* error = sd_bus_message_get_error(reply.get());
  return error == nullptr || error->name == nullptr ? "" : error->name;
}

// The one text that a reply consists of; none of an error or something else.
std::optional<std::string> textOf(const BusMessage& reply) {
  const char* text = nullptr;
  if (sd_bus_message_is_method_error(reply.get(), nullptr) != 0 ||
      sd_bus_message_has_signature(reply.get(), "s") == 0 ||
      sd_bus_message_read(reply.get(), "s", &text) <= 0) {
    return std::nullopt;
  }
  return text;
}

// The bus carries no bytes that are not UTF-8 and no zero.
std::string carried(const std::string& text) {
  std::string valid = text::validUtf8(text);
  std::ranges::replace(valid, '\0', ' ');
  return valid;
}

// Dictionaries hold texts and integers; anything else is left out.
int appendEntry(sd_bus_message* message, const std::string& key, const PropertyList& value) {
  const std::string name = carried(key);
  if (const auto* text = value.get<std::string>()) {
    return sd_bus_message_append(message, "{sv}", name.c_str(), "s", carried(*text).c_str());
  }
  if (const auto* number = value.get<std::int64_t>()) {
    return sd_bus_message_append(message, "{sv}", name.c_str(), "x", *number);
  }
  return 0;
}

int appendDictionary(sd_bus_message* message, const PropertyList::Dictionary& dictionary) {
  int result = sd_bus_message_open_container(message, 'a', "{sv}");
  for (const auto& [key, value] : dictionary) {
    if (result >= 0) result = appendEntry(message, key, value);
  }
  return result < 0 ? result : sd_bus_message_close_container(message);
}

int append(sd_bus_message* message, const PropertyList& argument) {
  if (const auto* text = argument.get<std::string>()) {
    return sd_bus_message_append(message, "s", carried(*text).c_str());
  }
  if (const auto* dictionary = argument.get<PropertyList::Dictionary>()) {
    return appendDictionary(message, *dictionary);
  }
  return -EINVAL;
}

std::optional<std::string> ownerOf(BusConnection& bus, const std::string& name) {
  const BusMessage question = bus.newCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                          "org.freedesktop.DBus", "GetNameOwner");
  if (!question || sd_bus_message_append(question.get(), "s", name.c_str()) < 0) return {};
  return textOf(bus.call(question));
}

}  // namespace

// static
std::unique_ptr<RemoteObject> BusObject::lookUp(const std::string& name) {
  if (sd_bus_interface_name_is_valid((kNames + name).c_str()) <= 0) return nullptr;
  std::unique_ptr<BusConnection> bus = BusConnection::open();
  if (!bus) return nullptr;
  const std::optional<std::string> owner = ownerOf(*bus, kNames + name);
  if (!owner) return nullptr;
  return std::unique_ptr<RemoteObject>(new BusObject(std::move(bus), *owner, kObjects + name));
}

BusObject::BusObject(std::unique_ptr<BusConnection> bus, std::string owner, std::string object)
    : bus_(std::move(bus)), owner_(std::move(owner)), object_(std::move(object)) {}

void BusObject::setProtocol(const std::string& protocol) {
  interface_ = kNames + protocol;
  methods_.reset();
}

bool BusObject::respondsTo(const std::string& message) {
  if (!methods_) methods_ = methods();
  return methods_->contains(message);
}

std::set<std::string> BusObject::methods() {
  const BusMessage question =
      bus_->newCall(owner_, object_, "org.freedesktop.DBus.Introspectable", "Introspect");
  if (!question) return {};
  const BusMessage reply = bus_->call(question);
  if (hasGone(errorOf(reply))) {
    throw Exception(exception_name::kInvalidSendPort, "the remote process has gone");
  }
  return introspection::methodsOf(textOf(reply).value_or(""), interface_);
}

void BusObject::perform(const std::string& message, const std::vector<PropertyList>& arguments) {
  const BusMessage call = bus_->newCall(owner_, object_, interface_, message);
  bool complete = call != nullptr;
  for (const PropertyList& argument : arguments) {
    complete = complete && append(call.get(), argument) >= 0;
  }
  if (!complete) {
    throw Exception(exception_name::kInvalidArgument, "no message can be made of " + message);
  }
  bus_->send(call);
}

}  // namespace platform
