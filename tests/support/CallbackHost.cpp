#include "tests/support/CallbackHost.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "tests/support/WaitFor.h"

namespace test {
namespace {

std::vector<std::string> commandOf(const std::vector<std::string>& options) {
  std::vector<std::string> command = {QV_TEST_PROGRAMS "/CallbackHost"};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

}  // namespace

CallbackHost::CallbackHost(const std::vector<std::string>& options)
    : program_(std::make_unique<ChildProgram>(commandOf(options))) {
  waitUntilReady();
}

CallbackHost::CallbackHost(const std::vector<std::string>& options, unsigned userId)
    : program_(std::make_unique<ChildProgram>(commandOf(options), userId)) {
  waitUntilReady();
}

void CallbackHost::waitUntilReady() {
  if (!program_->waitForLine("(ready)")) throw std::runtime_error("the host does not start");
}

std::vector<std::string> CallbackHost::waitForMessages(std::size_t count) {
  waitFor([&] { return messages().size() >= count; });
  return messages();
}

std::vector<std::string> CallbackHost::messages() {
  std::vector<std::string> messages;
  std::ranges::copy_if(program_->lines(), std::back_inserter(messages),
                       [](const std::string& line) { return !line.starts_with('('); });
  return messages;
}

std::size_t CallbackHost::timesAsked() {
  return static_cast<std::size_t>(std::ranges::count(program_->lines(), "(asked)"));
}

}  // namespace test
