#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

// What the application and its window program say to each other, each message a packet of a local
// socket (unix(7), SOCK_SEQPACKET). Neither end ever waits for the other to take one.
namespace window {

// The window program's arguments: the version of these messages, another bundle's program having
// perhaps been put in place of ours meanwhile, and the application's name, by which window managers
// and screen readers know its windows. The socket is its descriptor 3.
inline constexpr char kProgram[] = "window";
inline constexpr char kVersion[] = "1";
inline constexpr int kSocket = 3;

// From the application. Texts are UTF-8; a longer one is sent cut, with an ellipsis at its end.
inline constexpr std::size_t kLongestLine = 4096;
inline constexpr std::size_t kLongestMessage = 65536;

// Show the status window in front of all others, with the keyboard.
struct ShowStatusWindow {};
// Bring the status window over those of other applications, if it is shown.
struct Activate {};
// Set the status window's indicator moving.
struct StartAnimation {};
// Replace the status line.
struct SetStatus {
  std::string text;
};
struct HideStatusWindow {};
// Show an alert with one button, to be answered once by `Dismissed` with its number.
struct ShowAlert {
  std::uint32_t number = 0;
  std::string title;
  std::string message;
};
// Ask the display for a sign of life, to be answered once by `Alive`.
struct Ping {};

using Request = std::variant<ShowStatusWindow, Activate, StartAnimation, SetStatus,
                             HideStatusWindow, ShowAlert, Ping>;

// From the window program.

// The display is open. The first answer, and given once.
struct Ready {};
// The person has dismissed an alert.
struct Dismissed {
  std::uint32_t number = 0;
};
struct Alive {};

using Answer = std::variant<Ready, Dismissed, Alive>;

// A message as the bytes of a packet, and read back; none when an honest end sends no such bytes.
std::string encoded(const Request& request);
std::string encoded(const Answer& answer);
std::optional<Request> requestIn(std::string_view packet);
std::optional<Answer> answerIn(std::string_view packet);

enum class Sent {
  whole,
  // The other end has not taken what was sent before.
  later,
  // The other end has gone.
  never,
};
// Sends one packet without blocking.
Sent send(int socket, std::string_view packet);

struct Received {
  // Whether there is another end that sends packets of at most the given size.
  bool open = false;
  // Empty while there is none.
  std::string packet;
};
// Takes one packet of at most `longest` bytes without blocking. Descriptors that come with it are
// not taken.
Received receive(int socket, std::size_t longest);

// The longest packet of each direction.
inline constexpr std::size_t kLongestRequest = kLongestLine + kLongestMessage + 64;
inline constexpr std::size_t kLongestAnswer = 64;

}  // namespace window
