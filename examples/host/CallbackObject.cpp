#include "examples/host/CallbackObject.h"

#include <string_view>
#include <utility>

namespace host {
namespace {

constexpr char kName[] = "com.quorvale.QVProClientCallback";
constexpr char kObject[] = "/com/quorvale/QVProClientCallback";

// What this host answers. It takes errors in their richer forms, so the plain ones are not needed.
constexpr char kDescription[] = R"(
<node>
  <interface name="com.quorvale.QVVELMErrorCallbackProtocol">
    <method name="incrementRemoteProgress"/>
    <method name="postFinishedTask"/>
    <method name="postErrorForApp">
      <arg name="error" type="a{sv}" direction="in"/>
      <arg name="appName" type="s" direction="in"/>
    </method>
    <method name="postErrorStringUserInfo">
      <arg name="error" type="s" direction="in"/>
      <arg name="userInfo" type="a{sv}" direction="in"/>
    </method>
    <method name="postDisconnect"/>
  </interface>
</node>)";

std::string textOf(GVariant* dictionary, const char* key) {
  const char* text = nullptr;
  g_variant_lookup(dictionary, key, "&s", &text);
  return text == nullptr ? "" : text;
}

std::string errorOf(GVariant* arguments) {
  GVariant* error = nullptr;
  const char* application = nullptr;
  g_variant_get(arguments, "(@a{sv}&s)", &error, &application);
  std::string text = std::string(application) + ": " + textOf(error, "description");
  g_variant_unref(error);
  return text;
}

std::string errorTextOf(GVariant* arguments) {
  const char* error = nullptr;
  GVariant* userInfo = nullptr;
  g_variant_get(arguments, "(&s@a{sv})", &error, &userInfo);
  std::string text = textOf(userInfo, "appName") + ": " + error;
  g_variant_unref(userInfo);
  return text;
}

}  // namespace

CallbackObject::CallbackObject(Callbacks callbacks)
    : callbacks_(std::move(callbacks)),
      description_(g_dbus_node_info_new_for_xml(kDescription, nullptr)) {
  name_ = g_bus_own_name(G_BUS_TYPE_SESSION, kName, G_BUS_NAME_OWNER_FLAGS_DO_NOT_QUEUE, publish,
                         nameAcquired, nameLost, this, nullptr);
}

CallbackObject::~CallbackObject() {
  g_bus_unown_name(name_);
  g_dbus_node_info_unref(description_);
}

void CallbackObject::publish(GDBusConnection* bus, const char*, gpointer self) {
  static const GDBusInterfaceVTable kTable = {receive, nullptr, nullptr, {}};
  const auto* object = static_cast<CallbackObject*>(self);
  g_dbus_connection_register_object(bus, kObject, object->description_->interfaces[0], &kTable,
                                    self, nullptr, nullptr);
}

void CallbackObject::nameAcquired(GDBusConnection*, const char*, gpointer self) {
  static_cast<CallbackObject*>(self)->callbacks_.ready();
}

void CallbackObject::nameLost(GDBusConnection*, const char*, gpointer self) {
  static_cast<CallbackObject*>(self)->callbacks_.unavailable();
}

// The arguments are of the described types: others are refused before they come here.
void CallbackObject::receive(GDBusConnection*, const char*, const char*, const char*,
                             const char* method, GVariant* arguments, GDBusMethodInvocation* call,
                             gpointer self) {
  const Callbacks& callbacks = static_cast<CallbackObject*>(self)->callbacks_;
  const std::string_view name = method;
  if (name == "incrementRemoteProgress") callbacks.progressed();
  if (name == "postFinishedTask") callbacks.finished();
  if (name == "postErrorForApp") callbacks.failed(errorOf(arguments));
  if (name == "postErrorStringUserInfo") callbacks.failed(errorTextOf(arguments));
  if (name == "postDisconnect") callbacks.disconnected();
  g_dbus_method_invocation_return_value(call, nullptr);
}

}  // namespace host
