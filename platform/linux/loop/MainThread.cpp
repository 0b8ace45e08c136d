#include "platform/MainThread.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/linux/loop/MainLoop.h"

namespace platform::main_thread {

bool isCurrent() noexcept {
  static thread_local const bool isMain = ::gettid() == ::getpid();
  return isMain;
}

void perform(std::function<void()> work, Wait wait) {
  if (wait == Wait::untilDone && isCurrent()) {
    work();
  } else if (wait == Wait::untilDone) {
    main_loop::addAndWait(std::move(work));
  } else {
    main_loop::add(std::move(work));
  }
}

bool pumpOneEvent(std::chrono::duration<double> limit) {
  constexpr std::chrono::duration<double> kLongest = std::chrono::hours(24);
  if (!isCurrent()) return false;
  const auto wait = std::clamp(limit, std::chrono::duration<double>::zero(), kLongest);
  return main_loop::iterate(std::chrono::ceil<std::chrono::milliseconds>(wait));
}

}  // namespace platform::main_thread
