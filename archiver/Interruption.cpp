#include "archiver/Interruption.h"

#include <signal.h>

#include <atomic>
#include <initializer_list>

namespace archiver {
namespace {

std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal handler");

void remember(int /*signal*/) {
  interrupted = true;
}

}  // namespace

void deferInterruption() {
  struct sigaction action {};
  action.sa_handler = remember;
  action.sa_flags = SA_RESTART;
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) ::sigaction(number, &action, nullptr);
}

bool isInterrupted() noexcept {
  return interrupted;
}

}  // namespace archiver
