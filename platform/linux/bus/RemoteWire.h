#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// Messages on a stream socket between this program and its child that speaks to a bus: a length in
// four bytes, then that many bytes.
namespace platform::remote_wire {

using Deadline = std::chrono::steady_clock::time_point;

// Sends one message; false when the other side has gone or does not take it in time.
bool send(int socket, std::string_view message, Deadline deadline);

// The next message; none at the end of the stream, when it is longer than `limit` or when it has
// not come in time.
std::optional<std::string> receive(int socket, std::size_t limit, Deadline deadline);

}  // namespace platform::remote_wire
