#pragma once

#include <sys/types.h>

#include <vector>

#include "channel/Messages.h"
#include "channel/Packet.h"
#include "elevator/Jobs.h"
#include "posix/FileDescriptor.h"
#include "posix/PipeEnds.h"

namespace elevator {

// Serves the channels, one packet after the other, on one thread.
class Server {
 public:
  static constexpr std::size_t kMostChannels = 64;

  explicit Server(posix::FileDescriptor firstChannel);

  // Returns when the last channel is closed, nothing waits to be started, and nobody is left who
  // wants to hear how what runs ends. What runs goes on.
  void run();

 private:
  struct Channel {
    posix::FileDescriptor socket;
    // The one process that may use this channel: the one that used it first.
    pid_t peer = 0;
    // Readable when that has ended (pidfd_open(2)).
    posix::FileDescriptor peerProcess;
    // Who asked for it and has yet to give it to somebody; it is not read meanwhile.
    pid_t giver = 0;
  };
  // What goes back to the asker; what it holds is closed here once it has been sent.
  struct Answer {
    int status = 0;
    std::vector<posix::FileDescriptor> descriptors;
  };

  bool hasReasonToStay() const;
  void waitForSomething();
  // These are false when the channel is to be closed.
  bool serve(Channel& channel);
  static bool admit(Channel& channel, pid_t sender);
  bool reply(const Channel& channel, const channel::Request& request);
  Answer answer(const channel::Request& request, pid_t asker);
  Answer runCommand(const channel::Request& request);
  Answer openChannel(pid_t asker);
  int give(pid_t asker, pid_t child);
  Answer observe(const channel::Request& request);
  Answer tellLife() const;

  std::vector<Channel> channels_;
  // Every tool holds its writing end, too.
  posix::PipeEnds life_;
  Jobs jobs_;
};

}  // namespace elevator
