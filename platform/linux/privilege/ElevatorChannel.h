#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "channel/Messages.h"
#include "posix/FileDescriptor.h"

namespace platform {

// This process's end of a channel to the elevator. One thread at a time. What comes back is
// believed only when the kernel says that root sent it; anything else breaks the channel for good.
class ElevatorChannel {
 public:
  explicit ElevatorChannel(posix::FileDescriptor socket) : socket_(std::move(socket)) {}

  struct Answer {
    // An error number, or privilege::kSessionLost.
    int status = 0;
    // As many as were asked for when the status is 0, else none.
    std::vector<posix::FileDescriptor> descriptors;
    pid_t sender = 0;
  };

  // Sends a request and takes the answer, for which it waits at most half a minute. When the other
  // end is gone or silent the status is privilege::kSessionLost, and the channel is closed.
  Answer ask(channel::Kind kind, std::vector<std::string> words, std::size_t descriptors);

  // The two halves of asking for a sign of life, for one who has to start the elevator between
  // them.
  bool sendHello();
  Answer takeAnswer(std::size_t descriptors, std::chrono::milliseconds limit);

  int socket() const { return socket_.get(); }
  void close() { socket_ = posix::FileDescriptor(); }

 private:
  Answer lost();
  int send(channel::Kind kind, std::vector<std::string> words);

  posix::FileDescriptor socket_;
  std::uint32_t lastId_ = 0;
};

}  // namespace platform
