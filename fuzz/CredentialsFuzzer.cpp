#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "fuzz/EndedStream.h"
#include "platform/linux/agent/Credentials.h"

namespace {

constexpr std::size_t kLongest = 511;

// Takes the text before the first zero byte, and that byte, off a stream.
std::optional<std::string_view> takeText(std::string_view& stream) {
  const std::size_t end = stream.find('\0');
  if (end == std::string_view::npos || end > kLongest) return std::nullopt;
  const std::string_view text = stream.substr(0, end);
  stream.remove_prefix(end + 1);
  return text;
}

}  // namespace

// Whoever starts the agent may send it anything and end at any time.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const posix::FileDescriptor receiving = endedStream(data, size);
  if (!receiving) return 0;

  std::string_view stream(reinterpret_cast<const char*>(data), size);
  const auto name = takeText(stream);
  const auto password = name ? takeText(stream) : std::nullopt;
  authentication_agent::Credentials credentials;
  if (credentials.read(receiving.get()) != password.has_value()) std::abort();
  if (!password) return 0;
  if (credentials.userName != *name || credentials.password != *password) std::abort();
  // What follows is still there.
  char next = 0;
  const ssize_t left = ::recv(receiving.get(), &next, 1, 0);
  if (stream.empty() ? left != 0 : left != 1 || next != stream.front()) std::abort();
  return 0;
}
