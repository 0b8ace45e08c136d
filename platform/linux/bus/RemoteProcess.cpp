#include "platform/linux/bus/RemoteProcess.h"

#include <sys/socket.h>

#include <system_error>
#include <utility>

#include "platform/Bundle.h"
#include "platform/Exception.h"
#include "platform/Text.h"
#include "platform/linux/bus/RemoteWire.h"

namespace platform {
namespace {

constexpr std::size_t kLargestAnswer = 4096;

// A property list holds valid texts only.
PropertyList valid(const PropertyList& value) {
  if (const auto* string = value.get<std::string>()) return PropertyList(text::validUtf8(*string));
  const auto* dictionary = value.get<PropertyList::Dictionary>();
  if (dictionary == nullptr) return value;
  PropertyList::Dictionary result;
  for (const auto& [key, entry] : *dictionary) result.emplace(text::validUtf8(key), valid(entry));
  return PropertyList(std::move(result));
}

std::string request(const char* verb, const std::string& subject,
                    const std::vector<PropertyList>& arguments) {
  PropertyList::Array list;
  for (const PropertyList& argument : arguments) list.push_back(valid(argument));
  PropertyList::Dictionary fields;
  fields.emplace("verb", PropertyList(std::string(verb)));
  fields.emplace("subject", PropertyList(text::validUtf8(subject)));
  fields.emplace("arguments", PropertyList(std::move(list)));
  return property_list::serialized(fields, property_list::Format::binary);
}

[[noreturn]] void raise(const std::string& answer) {
  const std::string text = text::validUtf8(answer.substr(1));
  const std::size_t line = text.find('\n');
  // Only names that this side knows go further.
  if (line != std::string::npos && text.substr(0, line) == exception_name::kPortTimeout) {
    throw Exception(exception_name::kPortTimeout, text.substr(line + 1));
  }
  throw Exception(exception_name::kInvalidSendPort,
                  line == std::string::npos ? text : text.substr(line + 1));
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
  child.arguments = {*program, "remote"};
  child.ends = {theirs.get(), theirs.get(), ChildProgram::kNullDevice};
  std::unique_ptr<ChildProcess> process;
  try {
    process = std::make_unique<ChildProcess>(child);
  } catch (const std::system_error&) {
    return nullptr;
  }
  std::unique_ptr<RemoteProcess> object(new RemoteProcess(std::move(process), std::move(ours)));
  if (!object->ask("lookUp", name)) return nullptr;
  return object;
}

RemoteProcess::RemoteProcess(std::unique_ptr<ChildProcess> child, posix::FileDescriptor socket)
    : child_(std::move(child)), socket_(std::move(socket)) {}

void RemoteProcess::setProtocol(const std::string& protocol) {
  ask("setProtocol", protocol);
}

bool RemoteProcess::respondsTo(const std::string& message) {
  return ask("respondsTo", message);
}

void RemoteProcess::perform(const std::string& message,
                            const std::vector<PropertyList>& arguments) {
  ask("perform", message, arguments);
}

bool RemoteProcess::ask(const char* verb, const std::string& subject,
                        const std::vector<PropertyList>& arguments) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  std::optional<std::string> answer;
  if (remote_wire::send(socket_.get(), request(verb, subject, arguments), deadline)) {
    answer = remote_wire::receive(socket_.get(), kLargestAnswer, deadline);
  }
  if (!answer && std::chrono::steady_clock::now() >= deadline) {
    child_->terminate();
    throw Exception(exception_name::kPortTimeout, "the child at the session bus did not answer");
  }
  if (!answer || answer->empty()) {
    throw Exception(exception_name::kInvalidSendPort, "the child at the session bus has gone");
  }
  if (answer->front() == static_cast<char>(remote_wire::Answer::exception)) raise(*answer);
  return answer->front() == static_cast<char>(remote_wire::Answer::yes);
}

}  // namespace platform
