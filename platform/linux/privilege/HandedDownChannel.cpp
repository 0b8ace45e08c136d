#include "platform/linux/privilege/HandedDownChannel.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "channel/Messages.h"
#include "channel/Packet.h"
#include "platform/NoDestructor.h"

namespace platform {
namespace {

struct HandedDown {
  // Guards what follows.
  std::mutex mutex;
  bool secured = false;
  posix::FileDescriptor channel;
};

HandedDown& handedDown() {
  static NoDestructor<HandedDown> instance;
  return *instance;
}

// The number in the variable; -1 when it is no plain number.
int numberIn(std::string_view text) {
  int number = -1;
  const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && stopped == text.data() + text.size() ? number : -1;
}

// A standard end must stay open, or the next file would become it.
void leadNowhere(int standardEnd) {
  const posix::FileDescriptor nowhere(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (nowhere) ::dup2(nowhere.get(), standardEnd);
}

posix::FileDescriptor moved(int number) {
  posix::FileDescriptor channel(::fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (number <= STDERR_FILENO) {
    leadNowhere(number);
  } else {
    ::close(number);
  }
  const int on = 1;
  if (channel) ::setsockopt(channel.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
  return channel;
}

posix::FileDescriptor fromEnvironment() {
  const char* variable = std::getenv(channel::kChannelVariable);
  if (variable == nullptr) return {};
  const int number = numberIn(variable);
  ::unsetenv(channel::kChannelVariable);
  // Whatever else the number may name is somebody else's and stays as it is.
  return number >= 0 && channel::isChannel(number) ? moved(number) : posix::FileDescriptor();
}

}  // namespace

void secureHandedDownChannel() {
  HandedDown& state = handedDown();
  const std::lock_guard lock(state.mutex);
  if (std::exchange(state.secured, true)) return;
  state.channel = fromEnvironment();
}

posix::FileDescriptor takeHandedDownChannel() {
  secureHandedDownChannel();
  HandedDown& state = handedDown();
  const std::lock_guard lock(state.mutex);
  return std::move(state.channel);
}

}  // namespace platform
