#pragma once

#include "platform/linux/files/CopyContext.h"
#include "platform/linux/files/Location.h"

namespace platform {

// Whether `source` can be copied to `target` as far as can be told without copying: it is there,
// the target's name is free, in a folder that may be written, and not inside it.
Status checkCopy(const Location& source, const Location& target);

// file_system::copy for two locations.
Status copyItem(const Location& source, const Location& target,
                file_system::CopyObserver* observer);

// An item that has been copied whole, under a hidden name beside the place where it is to be. It is
// removed again unless it gets its name.
class StagedCopy {
 public:
  // Copies `source` beside `target` if `checkCopy` has nothing against it; look at status() before
  // anything else.
  StagedCopy(const Location& source, const Location& target, file_system::CopyObserver* observer);
  ~StagedCopy();
  StagedCopy(const StagedCopy&) = delete;
  StagedCopy& operator=(const StagedCopy&) = delete;

  const Status& status() const noexcept { return status_; }
  // Writes the copy to the disk.
  Status sync() const;
  // Gives it its name; fails when that is taken by now.
  Status putInPlace();
  // Undoes that: the copy is removed after all.
  void takeBack();

 private:
  Status copy(const Location& source, file_system::CopyObserver* observer);

  const Location& target_;
  Location staged_;
  bool inPlace_ = false;
  Status status_;
};

}  // namespace platform
