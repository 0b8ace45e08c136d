#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "platform/RemoteObject.h"
#include "platform/linux/bus/RemoteRequest.h"
#include "platform/linux/processes/ChildProcess.h"
#include "posix/FileDescriptor.h"

namespace platform {

// A RemoteObject on the session bus of the console user, for the superuser, whom that bus lets not
// in: a child program that has become the console user speaks to it.
class RemoteProcess : public RemoteObject {
 public:
  // How long a question to the child may take: the bus's own patience, and the child's start.
  static constexpr std::chrono::milliseconds kPatience{2000};

  // What RemoteObject::lookUp promises; null also without a console user.
  static std::unique_ptr<RemoteObject> lookUp(const std::string& name);

  ~RemoteProcess() override;

  void setProtocol(const std::string& protocol) override;
  bool respondsTo(const std::string& message) override;
  void perform(const std::string& message, const std::vector<PropertyList>& arguments) override;

 private:
  RemoteProcess(std::unique_ptr<ChildProcess> child, posix::FileDescriptor socket);
  // Sends the child a request and answers its yes or no; raises what the child raised.
  bool ask(const RemoteRequest& request);

  // Killed with this object, and then collected in the background.
  const std::unique_ptr<ChildProcess> child_;
  const posix::FileDescriptor socket_;
};

}  // namespace platform
