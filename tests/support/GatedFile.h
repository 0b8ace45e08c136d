#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/AppendingFile.h"

namespace test {

// A log file in memory whose appends stand still until its gate is opened.
class GatedFile : public platform::AppendingFile {
 public:
  Appended append(std::string_view bytes) override;
  void close() override;

  void open();
  // Waits until an append stands at the gate; answers false after ten seconds without one.
  bool waitForAppend();
  std::string contents();
  bool closed();

 private:
  std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  bool open_ = false;
  bool entered_ = false;
  bool closed_ = false;
  std::string contents_;
};

}  // namespace test
