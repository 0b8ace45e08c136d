#include "channel/Packet.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "channel/Messages.h"

namespace channel {
namespace {

constexpr std::size_t kMostDescriptors = 2;

// Room for the sender and exactly `descriptors` descriptors: the kernel closes what does not fit
// and says so.
std::size_t controlSize(std::size_t descriptors) {
  return CMSG_SPACE(sizeof(ucred)) + (descriptors > 0 ? CMSG_SPACE(sizeof(int) * descriptors) : 0);
}

void takeDescriptors(const cmsghdr* header, std::vector<posix::FileDescriptor>& descriptors) {
  const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
  for (std::size_t i = 0; i < count; ++i) {
    int number = -1;
    std::memcpy(&number, CMSG_DATA(header) + i * sizeof(int), sizeof number);
    descriptors.emplace_back(number);
  }
}

// False when the kernel named no sender.
bool takeControl(msghdr& message, Packet& packet) {
  bool known = false;
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
       header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET) continue;
    if (header->cmsg_type == SCM_RIGHTS) takeDescriptors(header, packet.descriptors);
    if (header->cmsg_type != SCM_CREDENTIALS) continue;
    ucred sender{};
    std::memcpy(&sender, CMSG_DATA(header), sizeof sender);
    packet.senderPid = sender.pid;
    packet.senderUid = sender.uid;
    known = sender.pid > 0;
  }
  return known;
}

}  // namespace

ChannelPair makeChannel() {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) return {};
  const int on = 1;
  for (const int end : ends) {
    ::setsockopt(end, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
  }
  return {posix::FileDescriptor(ends[0]), posix::FileDescriptor(ends[1])};
}

bool isChannel(int descriptor) {
  int domain = 0;
  int type = 0;
  socklen_t size = sizeof(int);
  return ::getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 &&
         ::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && domain == AF_UNIX &&
         type == SOCK_SEQPACKET;
}

Packet receive(int channel, std::size_t maxDescriptors) {
  Packet packet;
  packet.bytes.resize(kMaxMessage);
  alignas(cmsghdr)
      std::array<char, CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(sizeof(int) * kMostDescriptors)>
          control{};
  iovec vector{packet.bytes.data(), packet.bytes.size()};
  msghdr message{};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = controlSize(std::min(maxDescriptors, kMostDescriptors));
  ssize_t size = 0;
  do {
    size = ::recvmsg(channel, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  } while (size < 0 && errno == EINTR);
  if (size < 0) {
    if (errno == EAGAIN) packet.state = Packet::State::none;
    return packet;
  }
  packet.bytes.resize(static_cast<std::size_t>(size));
  const bool known = takeControl(message, packet);
  const bool cut = (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0;
  if (size > 0 && known && !cut) packet.state = Packet::State::whole;
  return packet;
}

bool send(int channel, std::string_view bytes, const std::vector<int>& descriptors) {
  iovec vector{const_cast<char*>(bytes.data()), bytes.size()};
  msghdr message{};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int) * kMostDescriptors)> control{};
  if (!descriptors.empty()) {
    const std::size_t size = sizeof(int) * std::min(descriptors.size(), kMostDescriptors);
    message.msg_control = control.data();
    message.msg_controllen = CMSG_SPACE(size);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(size);
    std::memcpy(CMSG_DATA(header), descriptors.data(), size);
  }
  ssize_t sent = 0;
  do {
    sent = ::sendmsg(channel, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent >= 0 && static_cast<std::size_t>(sent) == bytes.size();
}

bool waitReadable(int channel, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    pollfd entry{channel, POLLIN, 0};
    const int found = ::poll(&entry, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
    if (found >= 0 || errno != EINTR) return found > 0;
  }
}

}  // namespace channel
