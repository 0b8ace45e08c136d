#pragma once

#include <string_view>

#include "platform/linux/crash/FixedText.h"

namespace platform::crash {

// A file that appears under its name when it is whole, and not at all when it cannot be. Readable
// by its owner alone. Safe in a signal handler; trivially destroyed.
class CrashFile {
 public:
  // Begins it in an open folder, under a hidden name, with the rights and for the ownership of
  // whoever owns the folder. False when that is impossible.
  bool create(int folder) noexcept;
  void write(std::string_view text) noexcept;
  void write(const FixedText& text) noexcept { write(text.view()); }
  // Gives it the name <start><end>, or <start>-<process id><end> where that is taken. A file that
  // could not be written whole is removed.
  void publish(std::string_view start, std::string_view end) noexcept;
  void discard() noexcept;

 private:
  bool rename(const FixedText& name) noexcept;

  int folder_ = -1;
  int descriptor_ = -1;
  bool whole_ = false;
  FixedText hiddenName_;
};

}  // namespace platform::crash
