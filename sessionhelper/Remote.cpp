#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "platform/Exception.h"
#include "platform/linux/SessionHelperVerbs.h"
#include "platform/linux/bus/BusObject.h"
#include "platform/linux/bus/RemoteRequest.h"
#include "platform/linux/bus/RemoteWire.h"
#include "sessionhelper/Person.h"
#include "sessionhelper/Verbs.h"

namespace session_helper {
namespace {

using platform::RemoteAnswer;
using platform::RemoteRequest;

platform::remote_wire::Deadline in(std::chrono::seconds seconds) {
  return std::chrono::steady_clock::now() + seconds;
}

std::optional<RemoteRequest> nextRequest() {
  // The other side has its own deadlines; it ends this program by closing the stream.
  const auto message = platform::remote_wire::receive(STDIN_FILENO, platform::kLargestRemoteRequest,
                                                      in(std::chrono::hours(1)));
  return message ? platform::parsedRemoteRequest(*message) : std::nullopt;
}

// What this program does for the superuser's process, on the bus of the person that it has become.
class Session {
 public:
  bool carryOut(const RemoteRequest& request) {
    using Operation = RemoteRequest::Operation;
    if (request.operation == Operation::lookUp) {
      object_ = platform::BusObject::lookUp(request.subject);
    }
    if (!object_) return false;
    switch (request.operation) {
      case Operation::lookUp:
        return true;
      case Operation::setProtocol:
        object_->setProtocol(request.subject);
        return true;
      case Operation::respondsTo:
        return object_->respondsTo(request.subject);
      case Operation::perform:
        object_->perform(request.subject, request.arguments);
        return true;
    }
    return false;
  }

 private:
  std::unique_ptr<platform::RemoteObject> object_;
};

RemoteAnswer answerTo(const RemoteRequest& request, Session& session) {
  using Kind = RemoteAnswer::Kind;
  try {
    return {.kind = session.carryOut(request) ? Kind::yes : Kind::no};
  } catch (const platform::Exception& exception) {
    return {Kind::exception, exception.name(), exception.reason()};
  }
}

}  // namespace

int remote(const Arguments& arguments) {
  if (!platform::helper_verb::parsed<platform::helper_verb::Remote>(arguments)) return kUsageError;
  const bool person = becomePerson();
  Session session;
  while (const std::optional<RemoteRequest> request = nextRequest()) {
    const RemoteAnswer answer = person ? answerTo(*request, session) : RemoteAnswer();
    if (!platform::remote_wire::send(STDOUT_FILENO, serialized(answer),
                                     in(std::chrono::seconds(1)))) {
      return kFailure;
    }
  }
  return 0;
}

}  // namespace session_helper
