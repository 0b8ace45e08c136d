#include "platform/linux/personal/PassedDescriptor.h"

#include <poll.h>
#include <sys/socket.h>

#include <cstring>

namespace platform::personal {
namespace {

// One byte, and room for one descriptor.
struct Message {
  Message() {
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
  }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  char byte = 0;
  iovec part = {&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr header = {};
};

}  // namespace

bool passDescriptor(int socket, int descriptor) {
  Message message;
  cmsghdr* const control = CMSG_FIRSTHDR(&message.header);
  control->cmsg_level = SOL_SOCKET;
  control->cmsg_type = SCM_RIGHTS;
  control->cmsg_len = CMSG_LEN(sizeof descriptor);
  std::memcpy(CMSG_DATA(control), &descriptor, sizeof descriptor);
  return ::sendmsg(socket, &message.header, MSG_NOSIGNAL) == 1;
}

posix::FileDescriptor receiveDescriptor(int socket, std::chrono::milliseconds limit) {
  Message message;
  pollfd end = {socket, POLLIN, 0};
  if (::poll(&end, 1, static_cast<int>(limit.count())) != 1) return {};
  if (::recvmsg(socket, &message.header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) != 1) return {};
  const cmsghdr* const control = CMSG_FIRSTHDR(&message.header);
  if (control == nullptr || control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS ||
      control->cmsg_len != CMSG_LEN(sizeof(int))) {
    return {};
  }
  int descriptor = -1;
  std::memcpy(&descriptor, CMSG_DATA(control), sizeof descriptor);
  return posix::FileDescriptor(descriptor);
}

}  // namespace platform::personal
