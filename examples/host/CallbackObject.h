#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>

namespace host {

// What the helper tells, each on the thread of the main loop.
struct Callbacks {
  // The object can be found: the helper may be started.
  std::function<void()> ready;
  // One step of the update has been done.
  std::function<void()> progressed;
  // The helper has done what it will do, successfully or not.
  std::function<void()> finished;
  // Something went wrong; a text for a person.
  std::function<void(const std::string& error)> failed;
  // Nothing more will come.
  std::function<void()> disconnected;
  // The bus is missing, or another application is the host already.
  std::function<void()> unavailable;
};

// The object that the helper looks for on the session bus, see "Telling a host" in the README.
// There while this is; the main loop must run.
class CallbackObject {
 public:
  explicit CallbackObject(Callbacks callbacks);
  ~CallbackObject();
  CallbackObject(const CallbackObject&) = delete;
  CallbackObject& operator=(const CallbackObject&) = delete;

 private:
  static void publish(GDBusConnection* bus, const char* name, gpointer self);
  static void nameAcquired(GDBusConnection* bus, const char* name, gpointer self);
  static void nameLost(GDBusConnection* bus, const char* name, gpointer self);
  static void receive(GDBusConnection* bus, const char* sender, const char* object,
                      const char* interface, const char* method, GVariant* arguments,
                      GDBusMethodInvocation* call, gpointer self);

  const Callbacks callbacks_;
  GDBusNodeInfo* const description_;
  unsigned name_ = 0;
};

}  // namespace host
