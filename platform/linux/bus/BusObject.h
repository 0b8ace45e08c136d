#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>

#include "platform/RemoteObject.h"
#include "platform/linux/bus/BusConnection.h"

namespace platform {

// A RemoteObject on the session bus of the calling user.
class BusObject : public RemoteObject {
 public:
  // What RemoteObject::lookUp promises.
  static std::unique_ptr<RemoteObject> lookUp(const std::string& name);

  void setProtocol(const std::string& protocol) override;
  bool respondsTo(const std::string& message) override;
  void perform(const std::string& message, const std::vector<PropertyList>& arguments) override;

 private:
  BusObject(std::unique_ptr<BusConnection> bus, std::string owner, std::string object);
  std::set<std::string> methods();

  const std::unique_ptr<BusConnection> bus_;
  // The process that was found, whoever takes the name after it.
  const std::string owner_;
  const std::string object_;
  std::string interface_;
  // What the object answers, asked for once.
  std::optional<std::set<std::string>> methods_;
};

}  // namespace platform
