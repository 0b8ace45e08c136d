#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

#include "channel/Packet.h"
#include "platform/Privilege.h"
#include "platform/linux/privilege/ElevatorChannel.h"

// What a client does with the answer to its one question. The first byte says how many descriptors
// come with the packet and how many the client asked for; the rest is the packet. An answer is a
// success with exactly the descriptors that were asked for, or has none.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  channel::ChannelPair pair = channel::makeChannel();
  platform::ElevatorChannel client(std::move(pair.one));
  if (!client.sendHello()) return 0;
  const std::vector<int> sent(data[0] % 3U, STDIN_FILENO);
  const std::size_t asked = data[0] / 3U % 3U;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (!channel::send(pair.other.get(), bytes, sent)) return 0;
  const auto answer = client.takeAnswer(asked, std::chrono::milliseconds(0));
  if (answer.descriptors.size() != (answer.status == 0 ? asked : 0)) std::abort();
  if (answer.status < 0) std::abort();
  return 0;
}
