#pragma once

#include <string>
#include <vector>

#include "platform/Privilege.h"
#include "tests/support/Notes.h"

namespace test {

// Has an administrator's rights, and notes what is to be run with them, as in "/bin/rm [-R] [/x]",
// instead of running it.
class NotingSession : public platform::privilege::Session {
 public:
  // Answers `status` for everything that is to be run.
  explicit NotingSession(int status = 0) : status_(status) {}

  platform::privilege::Outcome askForRights() override {
    return platform::privilege::Outcome::granted;
  }
  platform::privilege::Outcome obtainRights(const platform::privilege::Credentials&) override {
    return platform::privilege::Outcome::granted;
  }
  platform::privilege::Execution execute(const std::string& tool,
                                         const std::vector<std::string>& arguments,
                                         platform::privilege::Output) override {
    std::string command = tool;
    for (const std::string& word : arguments) command += " [" + word + "]";
    note(command);
    return {.status = status_, .output = nullptr};
  }
  int runInheriting(const std::string&, const std::vector<std::string>&) override { return -1; }
  void end() override {}

 private:
  const int status_;
};

}  // namespace test
