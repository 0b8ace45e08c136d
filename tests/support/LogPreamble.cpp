#include "tests/support/LogPreamble.h"

namespace test {
namespace {

// The log trims its lines.
std::string named(const std::string& name, const std::string& value) {
  return value.empty() ? name : name + " " + value;
}

}  // namespace

std::vector<std::string> logOfRun(const LoggedArguments& arguments,
                                  const std::vector<std::string>& rest) {
  std::vector<std::string> lines = {
      "Beginning installation...", named("Source path:", arguments.source),
      named("Destination path:", arguments.destination), named("Mount path:", arguments.mountPath),
      named("Silent:", arguments.silent ? "1" : "0")};
  lines.insert(lines.end(), rest.begin(), rest.end());
  return lines;
}

std::vector<std::string> logOfValidRun(const LoggedArguments& arguments,
                                       const std::vector<std::string>& rest) {
  std::vector<std::string> lines = {"Path is valid.",
                                    "Waiting for software updater to close naturally...",
                                    "Killing software updater instances..."};
  lines.insert(lines.end(), rest.begin(), rest.end());
  return logOfRun(arguments, lines);
}

}  // namespace test
