#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

#include "tests/support/Sandbox.h"

namespace test {

// What holds a tool until the test lets it go on: a script that waits for somebody to write into a
// fifo.
class HeldTool {
 public:
  explicit HeldTool(const Sandbox& sandbox) : fifo_(sandbox.path("fifo")) {
    EXPECT_EQ(::mkfifo(fifo_.c_str(), 0600), 0);
  }

  // For /bin/sh; what is to happen then can follow.
  std::string script() const { return "read word <" + fifo_ + "; "; }
  // Blocks until the tool stands there.
  void release() const { std::ofstream(fifo_) << "go\n"; }

 private:
  std::string fifo_;
};

}  // namespace test
