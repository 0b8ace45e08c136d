#include "platform/linux/bus/RemoteWire.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace platform::remote_wire {
namespace {

// Waits until the socket is ready for `events`; false at the deadline.
bool waitFor(int socket, short events, Deadline deadline) {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd end = {socket, events, 0};
    const int ready = ::poll(&end, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
    if (ready > 0) return true;
    if (ready == 0 || errno != EINTR) return false;
  }
}

bool mayGoOn(ssize_t result) {
  return result > 0 || (result < 0 && (errno == EAGAIN || errno == EINTR));
}

bool sendAll(int socket, std::string_view bytes, Deadline deadline) {
  while (!bytes.empty()) {
    if (!waitFor(socket, POLLOUT, deadline)) return false;
    const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (!mayGoOn(sent)) return false;
    if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool receiveAll(int socket, char* bytes, std::size_t size, Deadline deadline) {
  while (size > 0) {
    if (!waitFor(socket, POLLIN, deadline)) return false;
    const ssize_t received = ::recv(socket, bytes, size, MSG_DONTWAIT);
    if (!mayGoOn(received)) return false;
    if (received <= 0) continue;
    bytes += received;
    size -= static_cast<std::size_t>(received);
  }
  return true;
}

}  // namespace

bool send(int socket, std::string_view message, Deadline deadline) {
  if (message.size() > UINT32_MAX) return false;
  const auto length = static_cast<std::uint32_t>(message.size());
  std::string bytes(sizeof length, '\0');
  std::memcpy(bytes.data(), &length, sizeof length);
  bytes += message;
  return sendAll(socket, bytes, deadline);
}

std::optional<std::string> receive(int socket, std::size_t limit, Deadline deadline) {
  char prefix[sizeof(std::uint32_t)];
  if (!receiveAll(socket, prefix, sizeof prefix, deadline)) return std::nullopt;
  std::uint32_t length = 0;
  std::memcpy(&length, prefix, sizeof length);
  if (length > limit) return std::nullopt;
  std::string message(length, '\0');
  if (!receiveAll(socket, message.data(), length, deadline)) return std::nullopt;
  return message;
}

}  // namespace platform::remote_wire
