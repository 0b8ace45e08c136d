#pragma once

#include <string>
#include <string_view>

#include "platform/Status.h"
#include "platform/linux/files/Location.h"

namespace archiver {

// A hidden name beside the place where something is to be, under which it can grow. What has it is
// removed again, a folder with everything in it, unless it gets its name.
class StagedItem {
 public:
  // For something at the absolute `path`; look at status() before anything else. Refuses when an
  // item is there already.
  StagedItem(const std::string& path, std::string_view purpose);
  ~StagedItem();
  StagedItem(const StagedItem&) = delete;
  StagedItem& operator=(const StagedItem&) = delete;

  const platform::Status& status() const noexcept { return status_; }
  // Where it is to grow.
  const platform::Location& location() const noexcept { return staged_; }
  // Gives it its name; fails when that is taken by now.
  platform::Status putInPlace();

 private:
  platform::Status find(std::string_view purpose);

  const std::string path_;
  platform::Location target_;
  platform::Location staged_;
  bool inPlace_ = false;
  platform::Status status_;
};

}  // namespace archiver
