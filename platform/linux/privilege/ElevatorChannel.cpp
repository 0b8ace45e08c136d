#include "platform/linux/privilege/ElevatorChannel.h"

#include <cerrno>
#include <optional>
#include <utility>

#include "channel/Packet.h"
#include "platform/Privilege.h"

namespace platform {
namespace {

// The elevator answers a request at once; only a file system that hangs can keep it that long.
constexpr std::chrono::seconds kReplyLimit(30);

bool isOversized(const std::vector<std::string>& words) {
  std::size_t bytes = 0;
  bool oversized = words.size() > channel::kMaxWords;
  for (const std::string& word : words) {
    bytes += word.size() + 1;
    oversized = oversized || word.size() > channel::kMaxWord;
  }
  return oversized || bytes > channel::kMaxMessage;
}

}  // namespace

int ElevatorChannel::send(channel::Kind kind, std::vector<std::string> words) {
  const bool oversized = isOversized(words);
  const auto packet = channel::encoded(channel::Request{kind, ++lastId_, std::move(words)});
  if (!packet) return oversized ? E2BIG : EINVAL;
  if (channel::send(socket_.get(), *packet)) return 0;
  return errno == EMSGSIZE ? E2BIG : privilege::kSessionLost;
}

bool ElevatorChannel::sendHello() {
  return send(channel::Kind::hello, {}) == 0;
}

ElevatorChannel::Answer ElevatorChannel::ask(channel::Kind kind, std::vector<std::string> words,
                                             std::size_t descriptors) {
  const int status = send(kind, std::move(words));
  if (status == privilege::kSessionLost) return lost();
  if (status != 0) return {status, {}, 0};
  return takeAnswer(descriptors, kReplyLimit);
}

ElevatorChannel::Answer ElevatorChannel::takeAnswer(std::size_t descriptors,
                                                    std::chrono::milliseconds limit) {
  if (!channel::waitReadable(socket_.get(), limit)) return lost();
  channel::Packet packet = channel::receive(socket_.get(), descriptors);
  if (packet.state != channel::Packet::State::whole || packet.senderUid != 0) return lost();
  const auto reply = channel::parseReply(packet.bytes);
  const std::size_t expected = reply && reply->status == 0 ? descriptors : 0;
  if (!reply || reply->id != lastId_ || packet.descriptors.size() != expected) return lost();
  return {reply->status, std::move(packet.descriptors), packet.senderPid};
}

ElevatorChannel::Answer ElevatorChannel::lost() {
  close();
  return {privilege::kSessionLost, {}, 0};
}

}  // namespace platform
