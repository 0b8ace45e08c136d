#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What is said on a channel between the elevator and a process that may use it. Each message is one
// packet; each request gets one reply, in order. Both sides parse as if the other were hostile.
namespace channel {

// The largest packet. Below the default send buffer of a local socket (socket(7), unix(7)).
inline constexpr std::size_t kMaxMessage = 160 * 1024;
// The most words of a command, its tool included.
inline constexpr std::size_t kMaxWords = 4096;
// The longest word: the kernel's limit for one argument (execve(2)), its terminator included.
inline constexpr std::size_t kMaxWord = 128 * 1024 - 1;

// The variable by which a parent tells a child the number of the descriptor of its channel.
inline constexpr char kChannelVariable[] = "QV_ELEVATOR_CHANNEL";

enum class Kind : std::uint32_t {
  // Asks for a sign of life. Reply: status 0.
  hello = 1,
  // Runs a command and lets its output go nowhere. Reply: status 0 when it was accepted.
  run = 2,
  // The same; the reply carries the reading ends of two pipes: the command's standard output, and
  // one on which its end is reported as one TermStatus. The output of a command that must wait for
  // an earlier one ends at once, so that nobody who reads it stands as long as that one runs.
  runPiped = 3,
  // Asks for a channel for a child of the asker. The reply carries it; nothing that is said on it
  // is
  // listened to before it was given.
  newChannel = 4,
  // Asks what became of the commands of the kind `run` that name an overlapping path, accepted so
  // far on whatever channel. The reply carries the reading end of a pipe on which one TermStatus
  // comes, that of the command that ended last, as soon as no such command, nor one of the kind
  // `runPiped`, is left that has not ended: at once when there is none. 0 when there was none; what
  // ended long ago is forgotten.
  observe = 5,
  // Asks for the reading end of a pipe on which nothing ever comes, and which ends when the
  // elevator and all tools that it started have ended: how the end of a tool is known though the
  // elevator went first.
  life = 6,
  // Gives the channel that the asker got last to the one process that may use it.
  give = 7,
};

struct Request {
  Kind kind = Kind::hello;
  std::uint32_t id = 0;
  // Of a command: the absolute path of its tool, then its arguments. Of an observation: the
  // absolute path. Of a gift: the process's number. Else empty.
  std::vector<std::string> words;
};

// The number of a process as a gift has it; 0 when it is none.
int processNumber(std::string_view word);

struct Reply {
  std::uint32_t id = 0;
  // 0 or an error number (errno(3)).
  std::int32_t status = 0;
};

// How a command ended: its exit status, the number of the signal that ended it, or -1 when it could
// not be started.
using TermStatus = std::int32_t;

// None when the request is not one that parseRequest would accept.
std::optional<std::string> encoded(const Request& request);
std::string encoded(const Reply& reply);

std::optional<Request> parseRequest(std::string_view packet);
std::optional<Reply> parseReply(std::string_view packet);

}  // namespace channel
