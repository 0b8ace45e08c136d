#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "channel/Messages.h"

// What the elevator makes of a packet before it acts on it. A request that it accepts must be the
// very packet that an honest client would have sent.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view packet(reinterpret_cast<const char*>(data), size);
  const auto request = channel::parseRequest(packet);
  if (request && channel::encoded(*request) != packet) std::abort();
  return 0;
}
