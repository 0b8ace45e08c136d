#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

#include "platform/Text.h"

// The first four bytes choose the encoding, the rest is decoded. What comes out must be valid UTF-8
// and come out of its own decoding unchanged.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using platform::text::Encoding;
  std::uint32_t encoding = 0;
  if (size < sizeof encoding) return 0;
  std::memcpy(&encoding, data, sizeof encoding);
  const auto bytes = std::as_bytes(std::span(data, size).subspan(sizeof encoding));
  const auto text = platform::text::decoded(bytes, static_cast<Encoding>(encoding));
  if (!text) return 0;
  const auto again = platform::text::decoded(std::as_bytes(std::span(*text)), Encoding::utf8);
  if (again != text) std::abort();
  return 0;
}
