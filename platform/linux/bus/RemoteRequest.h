#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

// What a process asks its child at a session bus, and what the child answers; each is one message
// of RemoteWire.h.
namespace platform {

struct RemoteRequest {
  // The operations of RemoteObject.
  enum class Operation {
    // The subject is the object's registered name. Answer: whether there is one.
    lookUp,
    // The subject is the protocol.
    setProtocol,
    // The subject is the message. Answer: whether the object answers to it.
    respondsTo,
    // The subject is the message.
    perform,
  };
  Operation operation = Operation::lookUp;
  std::string subject;
  PropertyList::Array arguments;
};

// Texts are made valid UTF-8.
std::string serialized(const RemoteRequest& request);
// None when it is no request.
std::optional<RemoteRequest> parsedRemoteRequest(std::string_view message);

// The longest message that is a request.
inline constexpr std::size_t kLargestRemoteRequest = 64U << 20;

struct RemoteAnswer {
  enum class Kind : char {
    no = 'n',
    yes = 'y',
    // The operation raised a platform::Exception.
    exception = 'e',
  };
  Kind kind = Kind::no;
  // Of an exception.
  std::string name = {};
  std::string reason = {};
};

std::string serialized(const RemoteAnswer& answer);
// None when it is no answer. What comes back is valid UTF-8.
std::optional<RemoteAnswer> parsedRemoteAnswer(std::string_view message);

// The longest message that is an answer.
inline constexpr std::size_t kLargestRemoteAnswer = 4096;

}  // namespace platform
