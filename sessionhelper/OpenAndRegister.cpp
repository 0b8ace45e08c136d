#include "platform/Workspace.h"

#include "platform/linux/SessionHelperVerbs.h"
#include "sessionhelper/Verbs.h"

namespace session_helper {
namespace {

namespace verb = platform::helper_verb;

int statusOf(bool done) {
  return done ? 0 : kFailure;
}

}  // namespace

int open(const Arguments& arguments) {
  const auto order = verb::parsed<verb::Open>(arguments);
  return order ? statusOf(platform::workspace::open(order->path)) : kUsageError;
}

int openWith(const Arguments& arguments) {
  const auto order = verb::parsed<verb::OpenWith>(arguments);
  if (!order) return kUsageError;
  return statusOf(platform::workspace::openWithApplication(order->path, order->application));
}

int registerApplication(const Arguments& arguments) {
  const auto order = verb::parsed<verb::Register>(arguments);
  return order ? statusOf(platform::workspace::registerApplication(order->path)) : kUsageError;
}

}  // namespace session_helper
