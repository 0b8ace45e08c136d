#include "Shared/QVTaskNotification.h"

#include <chrono>
#include <memory>

#include "Shared/QVException.h"
#include "platform/Clock.h"
#include "platform/Exception.h"
#include "platform/ProcessInfo.h"
#include "platform/RemoteObject.h"

namespace {

using Host = QVVELMErrorCallbackProtocol;
using platform::PropertyList;
using platform::RemoteObject;

// Lets the host take the message before the connection goes.
constexpr std::chrono::milliseconds kPause{15};

// Calls `send` with the host, if there is one.
template <class Send>
void post(const char* method, Send send) {
  try {
    std::unique_ptr<RemoteObject> object = RemoteObject::lookUp("QVProClientCallback");
    if (!object) object = RemoteObject::lookUp("QVVELMClientCallback");
    if (!object) return;
    Host host(*object);
    send(host);
    platform::clock::sleep(kPause);
  } catch (const platform::Exception& exception) {
    QVException::logException(exception, method);
  }
}

}  // namespace

// static
void QVTaskNotification::postIncrementProgress() {
  post("+[QVTaskNotification postIncrementProgress]",
       [](Host& host) { host.incrementRemoteProgress(); });
}

// static
void QVTaskNotification::postTaskFinished() {
  post("+[QVTaskNotification postTaskFinished]", [](Host& host) { host.postFinishedTask(); });
}

// static
void QVTaskNotification::postTaskError(const QVTaskError& error) {
  post("+[QVTaskNotification postTaskError:]", [&](Host& host) {
    const std::string name = platform::process_info::processName();
    if (!host.postError(error, name)) host.postError(error);
  });
}

// static
void QVTaskNotification::postTaskErrorString(const std::string& error) {
  post("+[QVTaskNotification postTaskErrorString:]", [&](Host& host) {
    const PropertyList name(platform::process_info::processName());
    if (!host.postErrorString(error, {{"appName", name}})) host.postErrorString(error);
  });
}

// static
void QVTaskNotification::postDisconnect() {
  post("+[QVTaskNotification postDisconnect]", [](Host& host) { host.postDisconnect(); });
}
