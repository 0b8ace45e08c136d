#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "platform/Exception.h"
#include "platform/PropertyList.h"
#include "platform/linux/bus/BusObject.h"
#include "platform/linux/bus/RemoteWire.h"
#include "sessionhelper/Person.h"
#include "sessionhelper/Verbs.h"

namespace session_helper {
namespace {

using platform::PropertyList;
using platform::remote_wire::Answer;

constexpr std::size_t kLargestRequest = 64U << 20;

platform::remote_wire::Deadline in(std::chrono::seconds seconds) {
  return std::chrono::steady_clock::now() + seconds;
}

struct Request {
  std::string verb;
  std::string subject;
  PropertyList::Array arguments;
};

template <class T>
T valueOf(const PropertyList::Dictionary& fields, const char* key) {
  const auto found = fields.find(key);
  const T* value = found == fields.end() ? nullptr : found->second.get<T>();
  return value == nullptr ? T{} : *value;
}

std::optional<Request> nextRequest() {
  // The other side has its own deadlines; it ends this program by closing the stream.
  const auto message =
      platform::remote_wire::receive(STDIN_FILENO, kLargestRequest, in(std::chrono::hours(1)));
  const auto fields = message ? platform::property_list::parse(*message) : std::nullopt;
  if (!fields) return std::nullopt;
  return Request{valueOf<std::string>(*fields, "verb"), valueOf<std::string>(*fields, "subject"),
                 valueOf<PropertyList::Array>(*fields, "arguments")};
}

// What this program does for the superuser's process, on the bus of the person that it has become.
class Session {
 public:
  bool carryOut(const Request& request) {
    if (request.verb == "lookUp") object_ = platform::BusObject::lookUp(request.subject);
    if (!object_) return false;
    if (request.verb == "respondsTo") return object_->respondsTo(request.subject);
    if (request.verb == "setProtocol") object_->setProtocol(request.subject);
    if (request.verb == "perform") object_->perform(request.subject, request.arguments);
    return true;
  }

 private:
  std::unique_ptr<platform::RemoteObject> object_;
};

std::string answerTo(const Request& request, Session& session) {
  try {
    const Answer answer = session.carryOut(request) ? Answer::yes : Answer::no;
    return {static_cast<char>(answer)};
  } catch (const platform::Exception& exception) {
    return static_cast<char>(Answer::exception) + exception.name() + '\n' + exception.reason();
  }
}

}  // namespace

int remote(const Arguments& arguments) {
  if (!arguments.empty()) return kUsageError;
  const bool person = becomePerson();
  Session session;
  while (const std::optional<Request> request = nextRequest()) {
    const std::string no = {static_cast<char>(Answer::no)};
    const std::string answer = person ? answerTo(*request, session) : no;
    if (!platform::remote_wire::send(STDOUT_FILENO, answer, in(std::chrono::seconds(1)))) {
      return kFailure;
    }
  }
  return 0;
}

}  // namespace session_helper
