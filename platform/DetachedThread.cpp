#include "platform/DetachedThread.h"

#include <system_error>
#include <thread>
#include <utility>

#include "platform/CrashLog.h"
#include "platform/Exception.h"

namespace platform {

void detachThread(std::function<void()> work) {
  try {
    std::thread([work = std::move(work)] {
      const crash_log::ThreadReserve reserve;
      work();
    }).detach();
  } catch (const std::system_error& error) {
    throw Exception(exception_name::kGeneric, error.code().message());
  }
}

}  // namespace platform
