#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace test {

// What `body` writes to the console.
inline std::string consoleOf(const std::function<void()>& body) {
  testing::internal::CaptureStderr();
  body();
  return testing::internal::GetCapturedStderr();
}

}  // namespace test
