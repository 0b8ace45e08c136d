#include "channel/Messages.h"

#include <charconv>
#include <cstring>

namespace channel {
namespace {

// Opens every packet; another number means another version.
constexpr std::uint32_t kMagic = 0x31455651;

template <class T>
void put(std::string& packet, T value) {
  packet.append(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class T>
bool take(std::string_view& packet, T& value) {
  if (packet.size() < sizeof value) return false;
  std::memcpy(&value, packet.data(), sizeof value);
  packet.remove_prefix(sizeof value);
  return true;
}

bool takeMagic(std::string_view& packet) {
  std::uint32_t magic = 0;
  return take(packet, magic) && magic == kMagic;
}

// Whether a request of that kind says so much.
bool fit(Kind kind, const std::vector<std::string>& words) {
  switch (kind) {
    case Kind::run:
    case Kind::runPiped:
      return !words.empty() && words.front().starts_with('/');
    case Kind::observe:
      return words.size() == 1 && words.front().starts_with('/');
    case Kind::give:
      return words.size() == 1 && processNumber(words.front()) > 0;
    case Kind::hello:
    case Kind::newChannel:
    case Kind::life:
      return words.empty();
  }
  return false;
}

// Splits a text in which every word ends in a zero byte.
std::optional<std::vector<std::string>> takeWords(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty()) {
    const std::size_t end = text.find('\0');
    if (end == std::string_view::npos || end > kMaxWord || words.size() == kMaxWords) return {};
    words.emplace_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  return words;
}

}  // namespace

int processNumber(std::string_view word) {
  int number = 0;
  const char* end = word.data() + word.size();
  const auto [stopped, error] = std::from_chars(word.data(), end, number);
  return error == std::errc() && stopped == end ? number : 0;
}

std::optional<std::string> encoded(const Request& request) {
  std::string packet;
  put(packet, kMagic);
  put(packet, request.kind);
  put(packet, request.id);
  for (const std::string& word : request.words) {
    if (word.find('\0') != std::string::npos) return {};
    packet.append(word.c_str(), word.size() + 1);
  }
  if (!parseRequest(packet)) return {};
  return packet;
}

std::string encoded(const Reply& reply) {
  std::string packet;
  put(packet, kMagic);
  put(packet, reply.id);
  put(packet, reply.status);
  return packet;
}

std::optional<Request> parseRequest(std::string_view packet) {
  std::uint32_t kind = 0;
  Request request;
  if (packet.size() > kMaxMessage || !takeMagic(packet) || !take(packet, kind) ||
      !take(packet, request.id) || kind < static_cast<std::uint32_t>(Kind::hello) ||
      kind > static_cast<std::uint32_t>(Kind::give)) {
    return {};
  }
  request.kind = static_cast<Kind>(kind);
  auto words = takeWords(packet);
  if (!words || !fit(request.kind, *words)) return {};
  request.words = std::move(*words);
  return request;
}

std::optional<Reply> parseReply(std::string_view packet) {
  Reply reply;
  if (!takeMagic(packet) || !take(packet, reply.id) || !take(packet, reply.status) ||
      !packet.empty() || reply.status < 0) {
    return {};
  }
  return reply;
}

}  // namespace channel
