#pragma once

#include <string_view>

#include "platform/Status.h"
#include "platform/linux/files/Location.h"

namespace platform {

// A hidden name beside the place where an item is to be, under which it can grow. What has it is
// removed again, a folder with everything in it, unless it gets its name.
class StagedItem {
 public:
  enum class Existing {
    refused,   // an item that has the name already is a failure
    replaced,  // a file or link that has it goes in the one step in which this one gets it
  };

  // Beside `target`, which must be a location and outlive this; `purpose` is told by the name, see
  // temporaryName. Look at status() before anything else: fails when the target is taken.
  StagedItem(const Location& target, std::string_view purpose,
             Existing existing = Existing::refused);
  ~StagedItem();
  StagedItem(const StagedItem&) = delete;
  StagedItem& operator=(const StagedItem&) = delete;

  const Status& status() const noexcept { return status_; }
  // Where it is to grow.
  const Location& location() const noexcept { return staged_; }

  // Writes its file system to the disk.
  Status sync() const;
  // Writes the folder to the disk, and so the name that it got.
  Status syncName() const;
  // Gives it its name; fails when that is taken by now, unless what has it is replaced.
  Status putInPlace();
  // Undoes that: it is removed after all. What it has replaced does not come back.
  void takeBack();

 private:
  Status stage(std::string_view purpose);
  int replace() const;
  posix::FileDescriptor openFolder() const;

  const Location& target_;
  Location staged_;
  const Existing existing_;
  bool inPlace_ = false;
  Status status_;
};

}  // namespace platform
