#include "Shared/ExistenceWait.h"

#include "Shared/QVFileManager.h"
#include "platform/Clock.h"
#include "platform/MainThread.h"

namespace {

using platform::clock::Seconds;
using std::chrono::steady_clock;

constexpr Seconds kEventLimit{0.01};
constexpr Seconds kPause{0.3};

void passTime() {
  if (platform::main_thread::isCurrent()) {
    platform::main_thread::pumpOneEvent(kEventLimit);
  } else {
    platform::clock::sleep(kPause);
  }
}

bool waitUntil(bool exists, const std::string& path, Seconds timeout) {
  const auto start = steady_clock::now();
  while (QVFileManager::fileExistsAtPath(path) != exists && steady_clock::now() - start < timeout) {
    passTime();
  }
  return QVFileManager::fileExistsAtPath(path) == exists;
}

}  // namespace

bool existsWithin(const std::string& path, std::chrono::seconds timeout) {
  return waitUntil(true, path, timeout);
}

bool isGoneWithin(const std::string& path, std::chrono::seconds timeout) {
  return waitUntil(false, path, timeout);
}
