#include "platform/Workspace.h"

#include "sessionhelper/Verbs.h"

namespace session_helper {
namespace {

int statusOf(bool done) {
  return done ? 0 : kFailure;
}

}  // namespace

int open(const Arguments& arguments) {
  if (arguments.size() != 1) return kUsageError;
  return statusOf(platform::workspace::open(arguments[0]));
}

int openWith(const Arguments& arguments) {
  if (arguments.size() != 2) return kUsageError;
  return statusOf(platform::workspace::openWithApplication(arguments[1], arguments[0]));
}

int registerApplication(const Arguments& arguments) {
  if (arguments.size() != 1) return kUsageError;
  return statusOf(platform::workspace::registerApplication(arguments[0]));
}

}  // namespace session_helper
