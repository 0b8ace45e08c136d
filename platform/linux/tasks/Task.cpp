#include "platform/Task.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/Exception.h"
#include "platform/linux/processes/ChildProcess.h"
#include "platform/linux/tasks/ChildPipes.h"
#include "platform/linux/tasks/ToolEquivalents.h"
#include "posix/PipeEnds.h"

namespace platform {
namespace {

Exception invalidArgument(std::string reason) {
  return Exception(exception_name::kInvalidArgument, std::move(reason));
}

// The system would take the text only up to the null character, which is another text.
void refuseNullCharacter(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) {
    throw invalidArgument("a null character in the path, an argument or the environment");
  }
}

std::vector<std::string> assignments(const Environment& environment) {
  std::vector<std::string> result;
  result.reserve(environment.size());
  for (const auto& [name, value] : environment) result.push_back(name + "=" + value);
  return result;
}

class LinuxTask : public Task {
 public:
  void setLaunchPath(std::string path) override { launchPath_ = std::move(path); }
  const std::string& launchPath() const override { return launchPath_; }
  void setArguments(std::vector<std::string> arguments) override {
    arguments_ = std::move(arguments);
  }
  void setEnvironment(Environment environment) override { environment_ = std::move(environment); }
  void setStandardInput(End end) override { ends_[0] = end; }
  void setStandardOutput(End end) override { ends_[1] = end; }
  void setStandardError(End end) override { ends_[2] = end; }

  void launch() override;

  std::shared_ptr<Pipe> standardOutputPipe() const override { return readingEnd(0); }
  std::shared_ptr<Pipe> standardErrorPipe() const override { return readingEnd(1); }

  bool isRunning() override {
    const auto child = launchedChild();
    return child != nullptr && !child->status();
  }
  void waitUntilExit() override {
    if (const auto child = launchedChild()) child->wait();
  }
  void terminate() override;
  int terminationStatus() override;

 private:
  struct Launched {
    std::shared_ptr<ChildProcess> child;
    // Output, error.
    std::array<std::shared_ptr<Pipe>, 2> readingEnds;
    // Never written to: the program finds its input open and empty.
    posix::FileDescriptor inputPipe;
  };

  std::shared_ptr<ChildProcess> launchedChild() const {
    const std::lock_guard lock(mutex_);
    return launched_.child;
  }
  std::shared_ptr<Pipe> readingEnd(std::size_t index) const {
    const std::lock_guard lock(mutex_);
    return launched_.readingEnds[index];
  }
  ChildProgram program(const ToolCommand& command) const;
  Launched started(ChildProgram program) const;
  std::string whyNotStarted(const std::error_code& error) const;

  std::string launchPath_;
  std::vector<std::string> arguments_;
  std::optional<Environment> environment_;
  // Input, output, error.
  std::array<End, 3> ends_ = {End::inherit, End::inherit, End::inherit};

  // Guards launched_, which is empty before the launch and never changes after it, and
  // terminationAsked_.
  mutable std::mutex mutex_;
  Launched launched_;
  // Before the launch.
  bool terminationAsked_ = false;
};

ChildProgram LinuxTask::program(const ToolCommand& command) const {
  ChildProgram program = {
      .path = command.path, .arguments = command.arguments, .environment = std::nullopt};
  program.arguments.insert(program.arguments.begin(), program.path);
  for (const posix::FileDescriptor& each : command.descriptors)
    program.further.push_back(each.get());
  if (environment_) program.environment = assignments(*environment_);
  std::ranges::for_each(program.arguments, refuseNullCharacter);
  if (program.environment) std::ranges::for_each(*program.environment, refuseNullCharacter);
  return program;
}

LinuxTask::Launched LinuxTask::started(ChildProgram program) const {
  Launched launched;
  const auto pipes = std::make_shared<ChildPipes>();
  std::array<posix::FileDescriptor, 3> childsEnds;
  for (std::size_t end = 0; end < ends_.size(); ++end) {
    if (ends_[end] == End::nullDevice) program.ends[end] = ChildProgram::kNullDevice;
    if (ends_[end] != End::pipe) continue;
    posix::PipeEnds pipe = posix::makePipe();
    if (!pipe.reading) throw std::system_error(errno, std::generic_category(), "pipe");
    if (end == 0) {
      launched.inputPipe = std::move(pipe.writing);
      childsEnds[end] = std::move(pipe.reading);
    } else {
      const auto stream = end == 1 ? ChildPipes::kOutput : ChildPipes::kError;
      launched.readingEnds[end - 1] = pipes->adopt(stream, std::move(pipe.reading));
      childsEnds[end] = std::move(pipe.writing);
    }
    program.ends[end] = childsEnds[end].get();
  }
  launched.child = std::make_shared<ChildProcess>(program);
  pipes->setChild(launched.child->handle());
  return launched;
}

void LinuxTask::launch() {
  if (launchedChild() != nullptr) throw invalidArgument("the task was launched before");
  try {
    const ToolCommand command = toolCommand(launchPath_, arguments_);
    Launched launched = started(program(command));
    const std::lock_guard lock(mutex_);
    launched_ = std::move(launched);
    if (terminationAsked_) launched_.child->terminate();
  } catch (const std::system_error& error) {
    throw invalidArgument(whyNotStarted(error.code()));
  }
}

void LinuxTask::terminate() {
  const std::lock_guard lock(mutex_);
  terminationAsked_ = true;
  if (launched_.child != nullptr) launched_.child->terminate();
}

std::string LinuxTask::whyNotStarted(const std::error_code& error) const {
  std::string reason = error.message();
  // The system has the same word for a program that is missing and for one whose interpreter is.
  if (error.value() == ENOENT && ::access(launchPath_.c_str(), F_OK) == 0) {
    reason += " (the program's interpreter is missing)";
  }
  return reason;
}

int LinuxTask::terminationStatus() {
  const auto child = launchedChild();
  if (child == nullptr) throw invalidArgument("the task was not launched");
  const std::optional<int> status = child->status();
  if (!status) throw invalidArgument("the task is still running");
  return *status;
}

}  // namespace

// static
std::shared_ptr<Task> Task::create() {
  return std::make_shared<LinuxTask>();
}

// static
bool Task::canLaunch(const std::string& launchPath) {
  return ::access(resolvedTool(launchPath).c_str(), X_OK) == 0;
}

}  // namespace platform
