#include <chrono>
#include <thread>

#include "platform/Clock.h"

// Pauses that the application spins through pass a hundred times quicker. What it sleeps keeps its
// length: the limits of the programs that it runs are slept too, and a real program needs real
// time.
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
  std::this_thread::sleep_for(duration);
}

}  // namespace platform::clock
