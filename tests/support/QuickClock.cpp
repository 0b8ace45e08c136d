#include <chrono>
#include <thread>

#include "platform/Clock.h"

// Pauses that pass more quickly than asked for, so that a test of what happens around a fixed pause
// does not have to sit through it. How much quicker sleeping is depends on the program: the limits
// of the programs that it runs are slept too, and a real program needs real time.
namespace platform::clock {
namespace {

constexpr double kSpinSpeed = 100;
constexpr double kSleepSpeed = QV_SLEEP_SPEED;

}  // namespace

void spin(Seconds duration) {
  const auto end = std::chrono::steady_clock::now() + duration / kSpinSpeed;
  while (std::chrono::steady_clock::now() < end) {
  }
}

void sleep(Seconds duration) {
  std::this_thread::sleep_for(duration / kSleepSpeed);
}

}  // namespace platform::clock
