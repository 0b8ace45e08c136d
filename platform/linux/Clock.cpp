#include "platform/Clock.h"

#include <chrono>
#include <thread>

namespace platform::clock {

void spin(Seconds duration) {
  const auto end = std::chrono::steady_clock::now() + duration;
  while (std::chrono::steady_clock::now() < end) {
  }
}

void sleep(Seconds duration) {
  std::this_thread::sleep_for(duration);
}

}  // namespace platform::clock
