#include "platform/DetachedThread.h"

#include <system_error>
#include <utility>

#include "platform/CrashLog.h"
#include "platform/Exception.h"

namespace platform {

void detachThread(std::function<void()> work) {
  try {
    crash_log::startThread(std::move(work)).detach();
  } catch (const std::system_error& error) {
    throw Exception(exception_name::kGeneric, error.code().message());
  }
}

}  // namespace platform
