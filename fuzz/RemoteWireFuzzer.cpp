#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/EndedStream.h"
#include "platform/linux/bus/RemoteWire.h"

namespace {

constexpr std::size_t kLimit = 1024;

// The message that a stream begins with, by the rules of the wire.
std::optional<std::string_view> firstMessage(std::string_view stream) {
  std::uint32_t length = 0;
  if (stream.size() < sizeof length) return std::nullopt;
  std::memcpy(&length, stream.data(), sizeof length);
  stream.remove_prefix(sizeof length);
  if (length > kLimit || length > stream.size()) return std::nullopt;
  return stream.substr(0, length);
}

}  // namespace

// A child of the superuser's that has become the person's may send anything and end at any time.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const posix::FileDescriptor receiving = endedStream(data, size);
  if (!receiving) return 0;
  const std::string_view stream(reinterpret_cast<const char*>(data), size);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  const auto message = platform::remote_wire::receive(receiving.get(), kLimit, deadline);
  if (message != firstMessage(stream)) std::abort();
  return 0;
}
