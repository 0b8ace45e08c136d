#include "platform/linux/privilege/ElevatorChannel.h"

#include <cerrno>
#include <optional>
#include <utility>

#include "elevator/Channel.h"
#include "platform/Privilege.h"

namespace platform {
namespace {

// The elevator answers a request at once; only a file system that hangs can keep it that long.
constexpr std::chrono::seconds kReplyLimit(30);

bool isOversized(const std::vector<std::string>& words) {
  std::size_t bytes = 0;
  bool oversized = words.size() > elevator::kMaxWords;
  for (const std::string& word : words) {
    bytes += word.size() + 1;
    oversized = oversized || word.size() > elevator::kMaxWord;
  }
  return oversized || bytes > elevator::kMaxMessage;
}

}  // namespace

int ElevatorChannel::send(elevator::Kind kind, std::vector<std::string> words) {
  const bool oversized = isOversized(words);
  const auto packet = elevator::encoded(elevator::Request{kind, ++lastId_, std::move(words)});
  if (!packet) return oversized ? E2BIG : EINVAL;
  if (elevator::send(socket_.get(), *packet)) return 0;
  return errno == EMSGSIZE ? E2BIG : privilege::kSessionLost;
}

bool ElevatorChannel::sendHello() {
  return send(elevator::Kind::hello, {}) == 0;
}

ElevatorChannel::Answer ElevatorChannel::ask(elevator::Kind kind, std::vector<std::string> words,
                                             std::size_t descriptors) {
  const int status = send(kind, std::move(words));
  if (status == privilege::kSessionLost) return lost();
  if (status != 0) return {status, {}, 0};
  return takeAnswer(descriptors, kReplyLimit);
}

ElevatorChannel::Answer ElevatorChannel::takeAnswer(std::size_t descriptors,
                                                    std::chrono::milliseconds limit) {
  if (!elevator::waitReadable(socket_.get(), limit)) return lost();
  elevator::Packet packet = elevator::receive(socket_.get(), descriptors);
  if (packet.state != elevator::Packet::State::whole || packet.senderUid != 0) return lost();
  const auto reply = elevator::parseReply(packet.bytes);
  const std::size_t expected = reply && reply->status == 0 ? descriptors : 0;
  if (!reply || reply->id != lastId_ || packet.descriptors.size() != expected) return lost();
  return {reply->status, std::move(packet.descriptors), packet.senderPid};
}

ElevatorChannel::Answer ElevatorChannel::lost() {
  close();
  return {privilege::kSessionLost, {}, 0};
}

}  // namespace platform
