#include "platform/linux/privilege/AuthenticationAgent.h"

#include <string.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <string>
#include <system_error>
#include <utility>

#include "channel/Packet.h"
#include "platform/Path.h"
#include "platform/ProcessInfo.h"

namespace platform {
namespace {

constexpr std::chrono::seconds kReadyLimit(5);
constexpr std::chrono::seconds kGoneLimit(2);
// PAM takes no more than this of either.
constexpr std::size_t kLongest = 512;

bool isUsable(const std::string& text) {
  return text.size() < kLongest && text.find('\0') == std::string::npos;
}

// The two texts, each with a zero byte behind it.
bool tell(const posix::FileDescriptor& socket, const privilege::Credentials& credentials) {
  std::string message;
  // So that no copy stays behind when the text grows.
  message.reserve(2 * kLongest);
  message.append(credentials.userName).push_back('\0');
  message.append(credentials.password).push_back('\0');
  const ssize_t sent = ::send(socket.get(), message.data(), message.size(), MSG_NOSIGNAL);
  const bool whole = sent >= 0 && static_cast<std::size_t>(sent) == message.size();
  ::explicit_bzero(message.data(), message.size());
  return whole;
}

bool hearReady(const posix::FileDescriptor& socket) {
  std::array<char, 1> word{};
  return channel::waitReadable(socket.get(), kReadyLimit) &&
         ::recv(socket.get(), word.data(), word.size(), MSG_DONTWAIT) == 1;
}

}  // namespace

AuthenticationAgent::AuthenticationAgent(const privilege::Credentials& credentials) {
  if (!isUsable(credentials.userName) || !isUsable(credentials.password)) return;
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return;
  socket_ = posix::FileDescriptor(ends[0]);
  told_ = start(posix::FileDescriptor(ends[1])) && tell(socket_, credentials);
}

bool AuthenticationAgent::waitUntilReady() {
  ready_ = told_ && hearReady(socket_);
  return ready_;
}

AuthenticationAgent::~AuthenticationAgent() {
  socket_ = posix::FileDescriptor();
  if (program_ == nullptr) return;
  const bool goes = ready_ && channel::waitReadable(program_->handle()->pidfd.get(), kGoneLimit);
  if (!goes) program_->terminate();
}

bool AuthenticationAgent::start(posix::FileDescriptor socket) {
  ChildProgram program;
  program.path = path::appending(path::deletingLastComponent(process_info::executablePath()),
                                 "authentication-agent");
  program.arguments = {program.path};
  program.environment = std::vector<std::string>{"PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
  program.ends = {socket.get(), ChildProgram::kNullDevice, ChildProgram::kNullDevice};
  try {
    program_ = std::make_unique<ChildProcess>(program);
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

}  // namespace platform
