#include "platform/linux/processes/SignalMaskedThread.h"

#include <csignal>
#include <system_error>
#include <utility>

#include "platform/CrashLog.h"
#include "platform/linux/crash/FatalSignal.h"

namespace platform {
namespace {

sigset_t allButFaults() {
  sigset_t set;
  ::sigfillset(&set);
  for (const int fault : crash::kFatalSignals) ::sigdelset(&set, fault);
  return set;
}

std::thread threadOrNone(std::function<void()> work) {
  try {
    return crash_log::startThread(std::move(work));
  } catch (const std::system_error&) {
    return {};
  }
}

}  // namespace

// A thread begins with the mask of the one that makes it.
std::thread startSignalMaskedThread(std::function<void()> work) {
  const sigset_t quiet = allButFaults();
  sigset_t before;
  ::pthread_sigmask(SIG_SETMASK, &quiet, &before);
  std::thread thread = threadOrNone(std::move(work));
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

}  // namespace platform
