#include "platform/linux/privilege/ElevatorSession.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "channel/Messages.h"
#include "channel/NamedPaths.h"
#include "platform/linux/privilege/AuthenticationAgent.h"
#include "platform/linux/privilege/ElevatorStart.h"
#include "platform/linux/privilege/ToolReport.h"

namespace platform {
namespace {

using privilege::Execution;
using privilege::Outcome;

constexpr std::chrono::minutes kPersonLimit(5);
// PAM lets those who gave a wrong password wait for some seconds.
constexpr std::chrono::seconds kPasswordLimit(30);
// An elevator whose queue is full has room again when a tool has ended.
constexpr std::chrono::minutes kQueueLimit(1);
constexpr std::chrono::milliseconds kQueuePause(20);
// As many as the elevator itself remembers.
constexpr std::size_t kMostWritten = 64;

// Reads once, again after interruptions; 0 at the end and on a failure.
std::size_t readSome(const posix::FileDescriptor& pipe, std::span<std::byte> buffer) {
  ssize_t size = 0;
  do {
    size = ::read(pipe.get(), buffer.data(), buffer.size());
  } while (size < 0 && errno == EINTR);
  return size > 0 ? static_cast<std::size_t>(size) : 0;
}

// This process's environment, in which a child finds the number of its channel.
std::vector<std::string> environmentWithChannel(int number) {
  const std::string name = std::string(channel::kChannelVariable) + "=";
  std::vector<std::string> result;
  for (char** each = environ; *each != nullptr; ++each) {
    if (!std::string_view(*each).starts_with(name)) result.emplace_back(*each);
  }
  result.push_back(name + std::to_string(number));
  return result;
}

class ElevatedOutput : public privilege::ToolOutput {
 public:
  ElevatedOutput(posix::FileDescriptor output, posix::FileDescriptor report)
      : output_(std::move(output)), report_(std::move(report)) {}

  std::size_t read(std::span<std::byte> buffer) override { return readSome(output_, buffer); }

  int terminationStatus() override {
    if (!report_) return status_;
    status_ = takeReport(report_).value_or(kUnknownEnd);
    report_ = posix::FileDescriptor();
    return status_;
  }

 private:
  posix::FileDescriptor output_;
  posix::FileDescriptor report_;
  int status_ = kUnknownEnd;
};

}  // namespace

ElevatorSession::ElevatorSession(posix::FileDescriptor ownEnd, posix::FileDescriptor elevatorsEnd)
    : channel_(std::move(ownEnd)), elevatorsEnd_(std::move(elevatorsEnd)) {
  writers::add(*this);
}

ElevatorSession::~ElevatorSession() {
  writers::remove(*this);
  // It was not ended, so it was lost.
  if (channel_.socket() < 0) writers::markEndUnknown({written_.begin(), written_.end()}, life_);
  ElevatorSession::end();
}

bool ElevatorSession::isAlive(std::chrono::milliseconds limit) {
  const std::lock_guard lock(mutex_);
  return channel_.sendHello() && channel_.takeAnswer(0, limit).status == 0;
}

Outcome ElevatorSession::askForRights() {
  const std::lock_guard lock(mutex_);
  if (!canStartElevator()) return Outcome::unavailable;
  return startElevator(channel_, std::move(elevatorsEnd_), posix::FileDescriptor(), kPersonLimit,
                       elevator_);
}

Outcome ElevatorSession::obtainRights(const privilege::Credentials& credentials) {
  const std::lock_guard lock(mutex_);
  AuthenticationAgent agent(credentials);
  if (!canStartElevator() || !agent.waitUntilReady()) return Outcome::unavailable;
  return startElevator(channel_, std::move(elevatorsEnd_), agent.gone(), kPasswordLimit, elevator_);
}

Execution ElevatorSession::execute(const std::string& tool,
                                   const std::vector<std::string>& arguments,
                                   privilege::Output output) {
  const bool piped = output == privilege::Output::piped;
  std::vector<std::string> words = {tool};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const std::vector<std::string> paths =
      piped ? std::vector<std::string>() : channel::namedPaths(arguments);
  // Nobody else keeps this tool from what a lost session's still does.
  writers::waitForUnknownEnds(channel::namedPaths(arguments));
  auto answer = run(words, piped, paths);
  const auto limit = std::chrono::steady_clock::now() + kQueueLimit;
  while (answer.status == EAGAIN && std::chrono::steady_clock::now() < limit) {
    std::this_thread::sleep_for(kQueuePause);
    answer = run(words, piped, paths);
  }
  // What an earlier session left behind there is written anew.
  if (answer.status == 0 && !piped) writers::markRewritten(paths);
  // What elevator/View.h answers.
  if (answer.status == ELOOP || answer.status == EPERM) return {privilege::kUnsafe, nullptr};
  if (answer.status != 0 || !piped) return {answer.status, nullptr};
  return {0, std::make_shared<ElevatedOutput>(std::move(answer.descriptors[0]),
                                              std::move(answer.descriptors[1]))};
}

ElevatorChannel::Answer ElevatorSession::run(std::vector<std::string> words, bool piped,
                                             std::vector<std::string> paths) {
  const std::lock_guard lock(mutex_);
  // Nobody is at the other end yet.
  if (elevatorsEnd_) return {privilege::kSessionLost, {}, 0};
  if (!life_) {
    auto life = channel_.ask(channel::Kind::life, {}, 1);
    if (life.status != 0) return life;
    life_ = std::move(life.descriptors[0]);
  }
  auto answer = channel_.ask(piped ? channel::Kind::runPiped : channel::Kind::run, std::move(words),
                             piped ? 2 : 0);
  if (answer.status != 0) return answer;
  hasRunTools_ = true;
  if (!piped) written_.push_back(std::move(paths));
  if (written_.size() > kMostWritten) written_.pop_front();
  return answer;
}

ElevatorSession::Observation ElevatorSession::observe(const std::string& path) {
  if (!hasRunTools_) return {};
  const std::vector<std::string> paths = channel::namedPaths({path});
  const std::lock_guard lock(mutex_);
  auto answer = channel_.ask(channel::Kind::observe, {path}, 1);
  posix::FileDescriptor life(::fcntl(life_.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (answer.status == 0) return {std::move(answer.descriptors[0]), std::move(life), false};
  const bool wrote = std::ranges::any_of(
      written_, [&paths](const auto& each) { return channel::overlap(each, paths); });
  return {posix::FileDescriptor(), std::move(life), wrote};
}

posix::FileDescriptor ElevatorSession::newChannel() {
  const std::lock_guard lock(mutex_);
  if (elevatorsEnd_) return {};
  auto answer = channel_.ask(channel::Kind::newChannel, {}, 1);
  return answer.status == 0 ? std::move(answer.descriptors[0]) : posix::FileDescriptor();
}

// When it fails the child finds nobody at the other end.
void ElevatorSession::give(pid_t child) {
  const std::lock_guard lock(mutex_);
  static_cast<void>(channel_.ask(channel::Kind::give, {std::to_string(child)}, 0));
}

int ElevatorSession::runInheriting(const std::string& program,
                                   const std::vector<std::string>& arguments) {
  posix::FileDescriptor channel = newChannel();
  if (!channel) return -1;
  ChildProgram child;
  child.path = program;
  child.arguments = {program};
  child.arguments.insert(child.arguments.end(), arguments.begin(), arguments.end());
  child.environment = environmentWithChannel(STDIN_FILENO);
  child.ends[STDIN_FILENO] = channel.get();
  try {
    ChildProcess process(child);
    channel = posix::FileDescriptor();
    give(process.handle()->id);
    process.wait();
    return process.status().value_or(-1);
  } catch (const std::system_error&) {
    return -1;
  }
}

void ElevatorSession::end() {
  const std::lock_guard lock(mutex_);
  hasRunTools_ = false;
  written_.clear();
  channel_.close();
  elevatorsEnd_ = posix::FileDescriptor();
  elevator_.reset();
}

}  // namespace platform
