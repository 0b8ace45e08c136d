#include "platform/linux/bus/RemoteProcess.h"

#include <sys/socket.h>

#include <system_error>
#include <utility>

#include "platform/Bundle.h"
#include "platform/Exception.h"
#include "platform/linux/SessionHelperVerbs.h"
#include "platform/linux/bus/RemoteWire.h"

namespace platform {
namespace {

using Operation = RemoteRequest::Operation;

[[noreturn]] void raise(const RemoteAnswer& answer) {
  // Only names that this side knows go further.
  const bool isTimeout = answer.name == exception_name::kPortTimeout;
  throw Exception(isTimeout ? exception_name::kPortTimeout : exception_name::kInvalidSendPort,
                  answer.reason);
}

}  // namespace

// static
std::unique_ptr<RemoteObject> RemoteProcess::lookUp(const std::string& name) {
  const auto program = Bundle::main().auxiliaryPath("session-helper");
  int ends[2];
  if (!program || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return nullptr;
  posix::FileDescriptor ours(ends[0]);
  const posix::FileDescriptor theirs(ends[1]);
  ChildProgram child;
  child.path = *program;
  child.arguments = helper_verb::words(helper_verb::Remote{});
  child.arguments.insert(child.arguments.begin(), *program);
  child.ends = {theirs.get(), theirs.get(), ChildProgram::kNullDevice};
  std::unique_ptr<ChildProcess> process;
  try {
    process = std::make_unique<ChildProcess>(child);
  } catch (const std::system_error&) {
    return nullptr;
  }
  std::unique_ptr<RemoteProcess> object(new RemoteProcess(std::move(process), std::move(ours)));
  if (!object->ask({Operation::lookUp, name, {}})) return nullptr;
  return object;
}

RemoteProcess::RemoteProcess(std::unique_ptr<ChildProcess> child, posix::FileDescriptor socket)
    : child_(std::move(child)), socket_(std::move(socket)) {}

// It has answered everything, so that nothing is lost; one that somebody has stopped would stay.
RemoteProcess::~RemoteProcess() {
  child_->kill();
}

void RemoteProcess::setProtocol(const std::string& protocol) {
  ask({Operation::setProtocol, protocol, {}});
}

bool RemoteProcess::respondsTo(const std::string& message) {
  return ask({Operation::respondsTo, message, {}});
}

void RemoteProcess::perform(const std::string& message,
                            const std::vector<PropertyList>& arguments) {
  ask({Operation::perform, message, arguments});
}

bool RemoteProcess::ask(const RemoteRequest& request) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  std::optional<std::string> message;
  if (remote_wire::send(socket_.get(), serialized(request), deadline)) {
    message = remote_wire::receive(socket_.get(), kLargestRemoteAnswer, deadline);
  }
  if (!message && std::chrono::steady_clock::now() >= deadline) {
    child_->kill();
    throw Exception(exception_name::kPortTimeout, "the child at the session bus did not answer");
  }
  const std::optional<RemoteAnswer> answer = parsedRemoteAnswer(message.value_or(std::string()));
  if (!answer) {
    throw Exception(exception_name::kInvalidSendPort, "the child at the session bus has gone");
  }
  if (answer->kind == RemoteAnswer::Kind::exception) raise(*answer);
  return answer->kind == RemoteAnswer::Kind::yes;
}

}  // namespace platform
