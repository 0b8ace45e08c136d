#include "tests/support/GatedFile.h"

#include <chrono>

namespace test {

platform::AppendingFile::Appended GatedFile::append(std::string_view bytes) {
  std::unique_lock lock(mutex_);
  entered_ = true;
  changed_.notify_all();
  changed_.wait(lock, [this] { return open_; });
  contents_ += bytes;
  return {bytes.size(), {}};
}

void GatedFile::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
}

void GatedFile::open() {
  const std::lock_guard lock(mutex_);
  open_ = true;
  changed_.notify_all();
}

bool GatedFile::waitForAppend() {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::seconds(10), [this] { return entered_; });
}

std::string GatedFile::contents() {
  const std::lock_guard lock(mutex_);
  return contents_;
}

bool GatedFile::closed() {
  const std::lock_guard lock(mutex_);
  return closed_;
}

}  // namespace test
