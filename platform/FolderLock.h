#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace platform {

// Keeps other processes and threads that ask for the same lock out of a folder's files while it
// lives. Nothing is left behind in the folder; the lock of a process that dies is free.
class FolderLock {
 public:
  // Waits at most `limit`; null when the lock is held as long, or there is no such folder.
  static std::unique_ptr<FolderLock> acquire(const std::string& folder,
                                             std::chrono::milliseconds limit);
  virtual ~FolderLock() = default;
};

}  // namespace platform
