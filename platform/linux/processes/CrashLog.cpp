#include "platform/CrashLog.h"

#include <utility>

#include "platform/linux/crash/AlternateStack.h"
#include "platform/linux/crash/CrashWriter.h"

namespace platform::crash_log {

struct ThreadReserve::Stack {
  crash::AlternateStack stack;
};

ThreadReserve::ThreadReserve() {
  if (crash::isInstalled()) stack_ = std::make_unique<Stack>();
}

ThreadReserve::~ThreadReserve() = default;

std::thread startThread(std::function<void()> work) {
  return std::thread([work = std::move(work)] {
    const ThreadReserve reserve;
    work();
  });
}

}  // namespace platform::crash_log
