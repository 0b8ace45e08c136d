#include <chrono>
#include <thread>

#include "platform/Clock.h"

// Pauses a hundred times shorter than asked for, so that a test of what happens around a fixed
// pause does not have to sit through it.
namespace platform::clock {
namespace {

constexpr double kSpeed = 100;

}  // namespace

void spin(Seconds duration) {
  const auto end = std::chrono::steady_clock::now() + duration / kSpeed;
  while (std::chrono::steady_clock::now() < end) {
  }
}

void sleep(Seconds duration) {
  std::this_thread::sleep_for(duration / kSpeed);
}

}  // namespace platform::clock
