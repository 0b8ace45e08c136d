#pragma once

#include <string>
#include <vector>

namespace test {

// The arguments of a run as its log has them; "(null)" is one that was not given.
struct LoggedArguments {
  std::string source = "(null)";
  std::string destination = "(null)";
  std::string mountPath = "(null)";
  bool silent = false;
};

// The lines with which every run's log begins behind the header, then `rest`: the one place that
// changes when a run logs something more about its arguments.
std::vector<std::string> logOfRun(const LoggedArguments& arguments,
                                  const std::vector<std::string>& rest);

// The same for arguments that the run accepts, and what it then does first.
std::vector<std::string> logOfValidRun(const LoggedArguments& arguments,
                                       const std::vector<std::string>& rest);

}  // namespace test
