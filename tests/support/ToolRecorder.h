#pragma once

#include <set>
#include <string>
#include <vector>

#include "tests/support/Sandbox.h"

namespace test {

// Stands in the places of tools and writes down how they are run. Nothing outside the test's own
// mount namespace changes: make it after Sandbox::simulateMachine and before any change of user.
class ToolRecorder {
 public:
  // One run of a tool, whoever started it.
  struct Run {
    double begin;  // seconds since the machine was started, to a hundredth
    int pid;
    std::string command;  // as in "/bin/rm [-R] [-f] [/x]"
  };

  explicit ToolRecorder(const Sandbox& sandbox);

  // From now on the tool at this path writes its run down, and then does what the words for /bin/sh
  // say; a tool that this machine does not have is there, too.
  void standInFor(const std::string& tool, const std::string& then = "");
  // From now on there is no such tool.
  void takeAway(const std::string& tool);

  // What has been run so far, in order.
  std::vector<Run> runs() const;
  std::vector<std::string> commands() const;
  // Waits until so many have been run; answers what commands() answers.
  std::vector<std::string> waitForCommands(std::size_t count) const;

 private:
  void makeChangeable(const std::string& folder);

  const Sandbox& sandbox_;
  const std::string record_;
  std::set<std::string> changeable_;
};

}  // namespace test
