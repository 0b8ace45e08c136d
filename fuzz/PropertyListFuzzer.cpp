#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/PropertyList.h"

namespace {

using platform::property_list::Format;
using platform::property_list::parse;
using platform::property_list::serialized;

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

// Whatever the bytes are, they are refused or read, and what was read can be written. What that
// changes (texts that are not UTF-8) it changes once: from then on the list stays the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto list = parse(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!list) return 0;
  serialized(*list, Format::xml);
  const auto clean = parse(serialized(*list, Format::binary));
  require(clean.has_value());
  const auto again = parse(serialized(*clean, Format::binary));
  require(again.has_value());
  // Compared as text, in which what is no number equals itself.
  require(serialized(*again, Format::xml) == serialized(*clean, Format::xml));
  return 0;
}
