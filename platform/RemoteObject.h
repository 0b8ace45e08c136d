#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/PropertyList.h"

namespace platform {

// An object that another process of the same person has published under a registered name, spoken
// to by messages that are sent and not waited for. One thread at a time.
class RemoteObject {
 public:
  // The object registered as `name` on this machine, or null when there is none. Raises
  // platform::Exception (kPortTimeout) when the registry does not answer in time.
  static std::unique_ptr<RemoteObject> lookUp(const std::string& name);
  virtual ~RemoteObject() = default;

  // The protocol that the messages belong to. Set before anything is sent.
  virtual void setProtocol(const std::string& protocol) = 0;

  // Whether the object answers `message`. Raises platform::Exception (kPortTimeout) when its
  // process does not say so in time, (kInvalidSendPort) when it has gone.
  virtual bool respondsTo(const std::string& message) = 0;

  // Sends `message` with its arguments (texts and dictionaries of texts and integers) and does not
  // wait for it to be handled. Raises platform::Exception as above when it cannot be sent.
  virtual void perform(const std::string& message, const std::vector<PropertyList>& arguments) = 0;
};

}  // namespace platform
