#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "posix/FileDescriptor.h"

// One packet of a channel: a connected local socket of packets (unix(7), SOCK_SEQPACKET).
namespace channel {

// A pair of connected ends, both closed on exec, both told the sender of each packet by the kernel.
// Both are empty when the system has no more; errno says why.
struct ChannelPair {
  posix::FileDescriptor one;
  posix::FileDescriptor other;
};
ChannelPair makeChannel();

// Whether a descriptor is such a socket.
bool isChannel(int descriptor);

struct Packet {
  enum class State {
    whole,
    // There is none now.
    none,
    // The other side has closed, or has sent what no honest one sends: too much at once,
    // descriptors that nobody asked for, no sender. Close the channel.
    broken,
  };
  State state = State::broken;
  std::string bytes;
  std::vector<posix::FileDescriptor> descriptors;
  // Who sent it, as the kernel says.
  pid_t senderPid = 0;
  uid_t senderUid = 0;
};

// Takes one packet without blocking, with at most `maxDescriptors` descriptors, closed on exec.
Packet receive(int channel, std::size_t maxDescriptors);

// Sends one packet without blocking; false, with errno, when it could not be sent whole.
bool send(int channel, std::string_view bytes, const std::vector<int>& descriptors = {});

// Waits until there is something to receive, the end of the channel included; false after `limit`.
bool waitReadable(int channel, std::chrono::milliseconds limit);

}  // namespace channel
