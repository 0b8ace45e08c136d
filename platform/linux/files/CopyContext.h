#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>

#include "platform/FileSystem.h"
#include "platform/Status.h"

namespace platform {

// What all parts of one copy share. Thread-safe.
class CopyContext {
 public:
  explicit CopyContext(file_system::CopyObserver* observer);

  // Whether the copy is to go no further: something failed or the observer cancelled it.
  bool stopped();
  // Keeps the first failure. Always false, so that a failing step can return it.
  bool fail(int error, int folder, const std::string& name);
  bool fail(Status failure);
  // The first failure, or success.
  Status result() const;

  // Tell the observer of the item `name` in an open folder of the source; "" is the folder itself.
  void countBytes(std::uint64_t bytes, int folder, const std::string& name);
  void countItem(int folder, const std::string& name);

  // The bits that the system takes from the mode of what is made.
  mode_t creationMask() const noexcept { return creationMask_; }
  bool isSuperuser() const noexcept { return superuser_; }

  // False once the file systems have shown that they cannot share extents.
  bool mayClone() const noexcept { return mayClone_.load(std::memory_order_relaxed); }
  void rememberNoCloning() noexcept { mayClone_.store(false, std::memory_order_relaxed); }

 private:
  file_system::CopyObserver* const observer_;
  const mode_t creationMask_;
  const bool superuser_;
  std::atomic<bool> mayClone_ = true;
  std::atomic<bool> stopped_ = false;
  mutable std::mutex mutex_;
  Status failure_;  // guarded by mutex_
};

}  // namespace platform
