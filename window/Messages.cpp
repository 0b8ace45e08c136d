#include "window/Messages.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace window {
namespace {

constexpr std::string_view kEllipsis = "\xe2\x80\xa6";

bool isContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

// At most `longest` bytes of the text, cut between two characters.
std::string clipped(const std::string& text, std::size_t longest) {
  if (text.size() <= longest) return text;
  std::size_t end = longest - kEllipsis.size();
  while (end > 0 && isContinuation(text[end])) --end;
  return text.substr(0, end).append(kEllipsis);
}

void put(std::string& packet, std::uint32_t number) {
  packet.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void put(std::string& packet, const std::string& text) {
  put(packet, static_cast<std::uint32_t>(text.size()));
  packet += text;
}

bool take(std::string_view& packet, std::uint32_t& number) {
  if (packet.size() < sizeof number) return false;
  std::memcpy(&number, packet.data(), sizeof number);
  packet.remove_prefix(sizeof number);
  return true;
}

bool take(std::string_view& packet, std::string& text) {
  std::uint32_t size = 0;
  if (!take(packet, size) || packet.size() < size) return false;
  text = packet.substr(0, size);
  packet.remove_prefix(size);
  return true;
}

// Most messages are nothing but their kind.
template <class Message>
void putFields(std::string& /*packet*/, const Message& /*message*/) {}

void putFields(std::string& packet, const SetStatus& status) {
  put(packet, clipped(status.text, kLongestLine));
}

void putFields(std::string& packet, const ShowAlert& alert) {
  put(packet, alert.number);
  put(packet, clipped(alert.title, kLongestLine));
  put(packet, clipped(alert.message, kLongestMessage));
}

void putFields(std::string& packet, const Dismissed& dismissed) {
  put(packet, dismissed.number);
}

template <class Message>
bool takeFields(std::string_view& /*packet*/, Message& /*message*/) {
  return true;
}

bool takeFields(std::string_view& packet, SetStatus& status) {
  return take(packet, status.text);
}

bool takeFields(std::string_view& packet, ShowAlert& alert) {
  return take(packet, alert.number) && take(packet, alert.title) && take(packet, alert.message);
}

bool takeFields(std::string_view& packet, Dismissed& dismissed) {
  return take(packet, dismissed.number);
}

// A message's kind, its place among those of its direction, is the first byte.
template <class Messages>
std::string encodedMessage(const Messages& message) {
  std::string packet(1, static_cast<char>(message.index()));
  std::visit([&packet](const auto& each) { putFields(packet, each); }, message);
  return packet;
}

template <class Messages, std::size_t kind = 0>
std::optional<Messages> messageIn(std::string_view packet) {
  if constexpr (kind < std::variant_size_v<Messages>) {
    if (packet.empty()) return std::nullopt;
    if (static_cast<unsigned char>(packet.front()) != kind) {
      return messageIn<Messages, kind + 1>(packet);
    }
    packet.remove_prefix(1);
    std::variant_alternative_t<kind, Messages> message;
    if (!takeFields(packet, message) || !packet.empty()) return std::nullopt;
    return message;
  }
  return std::nullopt;
}

}  // namespace

std::string encoded(const Request& request) {
  return encodedMessage(request);
}

std::string encoded(const Answer& answer) {
  return encodedMessage(answer);
}

std::optional<Request> requestIn(std::string_view packet) {
  return messageIn<Request>(packet);
}

std::optional<Answer> answerIn(std::string_view packet) {
  return messageIn<Answer>(packet);
}

Sent send(int socket, std::string_view packet) {
  ssize_t sent = 0;
  do {
    sent = ::send(socket, packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  if (sent >= 0) return Sent::whole;
  return errno == EAGAIN ? Sent::later : Sent::never;
}

Received receive(int socket, std::size_t longest) {
  std::string packet(longest, '\0');
  ssize_t size = 0;
  do {
    size = ::recv(socket, packet.data(), packet.size(), MSG_DONTWAIT | MSG_TRUNC);
  } while (size < 0 && errno == EINTR);
  if (size < 0) return {errno == EAGAIN, ""};
  const auto length = static_cast<std::size_t>(size);
  if (length == 0 || length > longest) return {};
  packet.resize(length);
  return {true, std::move(packet)};
}

}  // namespace window
