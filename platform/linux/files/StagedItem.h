#pragma once

#include <string_view>

#include "platform/Status.h"
#include "platform/linux/files/Location.h"

namespace platform {

// A hidden name beside the place where an item is to be, under which it can grow. What has it is
// removed again, a folder with everything in it, unless it gets its name.
class StagedItem {
 public:
  // Beside `target`, which must be a location and outlive this; `purpose` is told by the name, see
  // temporaryName. Look at status() before anything else: fails when the target is taken.
  StagedItem(const Location& target, std::string_view purpose);
  ~StagedItem();
  StagedItem(const StagedItem&) = delete;
  StagedItem& operator=(const StagedItem&) = delete;

  const Status& status() const noexcept { return status_; }
  // Where it is to grow.
  const Location& location() const noexcept { return staged_; }

  // Writes its file system to the disk.
  Status sync() const;
  // Gives it its name; fails when that is taken by now.
  Status putInPlace();
  // Undoes that: it is removed after all.
  void takeBack();

 private:
  Status stage(std::string_view purpose);

  const Location& target_;
  Location staged_;
  bool inPlace_ = false;
  Status status_;
};

}  // namespace platform
