#include "Shared/QVVELMErrorCallbackProtocol.h"

#include <vector>

namespace {

using platform::PropertyList;

PropertyList dictionaryOf(const QVTaskError& error) {
  return PropertyList(PropertyList::Dictionary{{"domain", PropertyList(error.domain)},
                                               {"code", PropertyList(error.code)},
                                               {"description", PropertyList(error.description)}});
}

}  // namespace

QVVELMErrorCallbackProtocol::QVVELMErrorCallbackProtocol(platform::RemoteObject& host)
    : host_(host) {
  host_.setProtocol(kName);
}

bool QVVELMErrorCallbackProtocol::incrementRemoteProgress() {
  return send("incrementRemoteProgress", {});
}

bool QVVELMErrorCallbackProtocol::postFinishedTask() {
  return send("postFinishedTask", {});
}

bool QVVELMErrorCallbackProtocol::postError(const QVTaskError& error) {
  return send("postError", {dictionaryOf(error)});
}

bool QVVELMErrorCallbackProtocol::postErrorString(const std::string& error) {
  return send("postErrorString", {PropertyList(error)});
}

bool QVVELMErrorCallbackProtocol::postDisconnect() {
  return send("postDisconnect", {});
}

bool QVVELMErrorCallbackProtocol::postError(const QVTaskError& error, const std::string& appName) {
  return send("postErrorForApp", {dictionaryOf(error), PropertyList(appName)});
}

bool QVVELMErrorCallbackProtocol::postErrorString(const std::string& error,
                                                  const PropertyList::Dictionary& userInfo) {
  return send("postErrorStringUserInfo", {PropertyList(error), PropertyList(userInfo)});
}

bool QVVELMErrorCallbackProtocol::send(const char* message,
                                       const std::vector<PropertyList>& arguments) {
  if (!host_.respondsTo(message)) return false;
  host_.perform(message, arguments);
  return true;
}
