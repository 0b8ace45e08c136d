#include "platform/linux/window/LifeSigns.h"

#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "platform/linux/loop/MainLoop.h"

namespace platform {
namespace {

constexpr time_t kPeriodSeconds = 2;
constexpr int kMostSilentPeriods = 5;

}  // namespace

LifeSigns::LifeSigns(std::function<void()> ask, std::function<void()> miss)
    : ask_(std::move(ask)), miss_(std::move(miss)) {}

void LifeSigns::begin() {
  if (timer_) return;
  timer_.reset(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  const itimerspec period = {{kPeriodSeconds, 0}, {kPeriodSeconds, 0}};
  if (!timer_ || ::timerfd_settime(timer_.get(), 0, &period, nullptr) != 0) return end();
  main_loop::watch(timer_.get(), POLLIN, [this] { passPeriod(); });
  silentPeriods_ = 0;
  if (!asked_) ask();
}

void LifeSigns::end() {
  if (timer_) main_loop::unwatch(timer_.get());
  timer_.reset();
}

bool LifeSigns::take() {
  return std::exchange(asked_, false);
}

void LifeSigns::ask() {
  asked_ = true;
  silentPeriods_ = 0;
  ask_();
}

// However often the period has passed, this process has seen it once.
void LifeSigns::passPeriod() {
  std::uint64_t times = 0;
  [[maybe_unused]] const ssize_t taken = ::read(timer_.get(), &times, sizeof times);
  if (!asked_) return ask();
  if (++silentPeriods_ >= kMostSilentPeriods) miss_();
}

}  // namespace platform
