#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/ChildProgram.h"

namespace test {

// A host application in a process of its own on the announced session bus, see
// tests/programs/CallbackHost.cpp for its options. Ready to be found when made.
class CallbackHost {
 public:
  explicit CallbackHost(const std::vector<std::string>& options);
  // The same for another user; the test must be root.
  CallbackHost(const std::vector<std::string>& options, unsigned userId);

  ChildProgram& program() { return *program_; }
  // Waits until `count` messages have arrived and answers all that have.
  std::vector<std::string> waitForMessages(std::size_t count);
  // The messages that have arrived up to now.
  std::vector<std::string> messages();
  // How often it was asked what it answers.
  std::size_t timesAsked();

 private:
  void waitUntilReady();

  std::unique_ptr<ChildProgram> program_;
};

}  // namespace test
