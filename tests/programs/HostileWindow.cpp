// Stands in for the window program and answers what $HOSTILE_ANSWER says: "nothing" at all,
// "garbage", a "long" packet, a dismissal of an alert that there "never" was, a sign of life that
// nobody "unasked" for, "descriptors" with its answers, or answers without an "end".
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int kSocket = 3;

bool send(const std::string& packet) {
  return ::send(kSocket, packet.data(), packet.size(), MSG_NOSIGNAL) >= 0;
}

bool sendDescriptor(std::string packet) {
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  iovec vector{packet.data(), packet.size()};
  msghdr message{};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  cmsghdr* header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &kSocket, sizeof kSocket);
  return ::sendmsg(kSocket, &message, MSG_NOSIGNAL) >= 0;
}

const std::string kReady(1, '\0');
const std::string kDismissed("\1\xff\xff\xff\xff", 5);
const std::string kAlive(1, '\2');

}  // namespace

int main() {
  const std::string answer = std::getenv("HOSTILE_ANSWER");
  if (answer == "garbage") send("garbage");
  if (answer == "long") send(std::string(100000, 'x'));
  if (answer == "never") send(kReady) && send(kDismissed);
  if (answer == "unasked") send(kReady) && send(kAlive);
  while (answer == "descriptors" && sendDescriptor(kReady)) {
  }
  while (answer == "end" && send(kReady)) {
  }
  for (;;) ::pause();
}
