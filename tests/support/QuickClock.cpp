#include "tests/support/QuickClock.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/Clock.h"

// Pauses that pass more quickly than asked for, so that a test of what happens around a fixed pause
// does not have to sit through it. How much quicker sleeping is depends on the program: the limits
// of the programs that it runs are slept too, and a real program needs real time.
namespace {

constexpr double kSpinSpeed = 100;
constexpr double kSleepSpeed = QV_SLEEP_SPEED;

std::atomic<test::PauseObserver> observer = nullptr;

void tell(const char* how, platform::clock::Seconds duration) {
  if (const test::PauseObserver told = observer) told(how, duration.count());
}

}  // namespace

namespace test {

void observePauses(PauseObserver newObserver) {
  observer = newObserver;
}

}  // namespace test

namespace platform::clock {

void spin(Seconds duration) {
  tell("spins", duration);
  const auto end = std::chrono::steady_clock::now() + duration / kSpinSpeed;
  while (std::chrono::steady_clock::now() < end) {
  }
}

void sleep(Seconds duration) {
  tell("sleeps", duration);
  std::this_thread::sleep_for(duration / kSleepSpeed);
}

}  // namespace platform::clock
