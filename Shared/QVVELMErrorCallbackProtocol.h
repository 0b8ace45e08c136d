#pragma once

#include <cstdint>
#include <string>

#include "platform/RemoteObject.h"

// An error as a host is told of it.
struct QVTaskError {
  std::string domain;
  std::int64_t code = 0;
  // For a person, UTF-8.
  std::string description;
};

// The host application's callback object, as the process that it started speaks to it. Each message
// is sent when the host answers it, and its handling is not waited for; the result is whether the
// host answers it. On the wire a message has the name of its function, but for the two richer ones.
// Texts are made valid UTF-8. Blocks for what RemoteObject takes, and raises what that raises. One
// thread at a time.
class QVVELMErrorCallbackProtocol {
 public:
  static constexpr char kName[] = "QVVELMErrorCallbackProtocol";

  // Sets the protocol of `host`, which must outlive this.
  explicit QVVELMErrorCallbackProtocol(platform::RemoteObject& host);

  // One step of the task has been done.
  bool incrementRemoteProgress();
  // The task has ended.
  bool postFinishedTask();
  // An error: a dictionary of "domain" (text), "code" (integer) and "description" (text).
  bool postError(const QVTaskError& error);
  // An error's text.
  bool postErrorString(const std::string& error);
  // Nothing more will come.
  bool postDisconnect();

  // Not part of the protocol, but answered by hosts that want to know who posts.
  // "postErrorForApp": an error as above and the posting process's name.
  bool postError(const QVTaskError& error, const std::string& appName);
  // "postErrorStringUserInfo": an error's text and a dictionary.
  bool postErrorString(const std::string& error,
                       const platform::PropertyList::Dictionary& userInfo);

 private:
  bool send(const char* message, const std::vector<platform::PropertyList>& arguments);

  platform::RemoteObject& host_;
};
