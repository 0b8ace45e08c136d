#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

// How the benchmarks take times and what they make of them.
namespace timing {

using Work = std::function<void()>;

inline double microseconds(const Work& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin)
      .count();
}

inline double milliseconds(const Work& work) {
  return microseconds(work) / 1000;
}

inline double median(std::vector<double> times) {
  std::ranges::sort(times);
  return times[times.size() / 2];
}

}  // namespace timing
