#pragma once

#include <sys/types.h>

#include <vector>

#include "elevator/Channel.h"
#include "elevator/Jobs.h"
#include "elevator/Messages.h"
#include "platform/linux/FileDescriptor.h"

namespace elevator {

using platform::FileDescriptor;

// Serves the channels, one packet after the other, on one thread.
class Server {
 public:
  static constexpr std::size_t kMostChannels = 64;

  explicit Server(FileDescriptor firstChannel);

  // Returns when the last channel is closed, nothing waits to be started, and nobody is left who
  // wants to hear how what runs ends. What runs goes on.
  void run();

 private:
  struct Channel {
    FileDescriptor socket;
    // The one process that may use this channel: the one that used it first.
    pid_t peer = 0;
    // Readable when that has ended (pidfd_open(2)).
    FileDescriptor peerProcess;
  };
  // What goes back to the asker; what it holds is closed here once it has been sent.
  struct Answer {
    int status = 0;
    std::vector<FileDescriptor> descriptors;
  };

  bool hasReasonToStay() const;
  void waitForSomething();
  // These are false when the channel is to be closed.
  bool serve(Channel& channel);
  static bool admit(Channel& channel, pid_t sender);
  bool reply(const Channel& channel, const Request& request);
  Answer answer(const Request& request);
  Answer runCommand(const Request& request);
  Answer openChannel();
  Answer observe(const Request& request);

  std::vector<Channel> channels_;
  Jobs jobs_;
};

}  // namespace elevator
