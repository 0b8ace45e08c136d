#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/files/FinderInformationAttribute.h"

// Two bytes of new flags, then an attribute's value as somebody may have written it. What is
// understood is exactly what has the right length; changed flags are read back, every other byte
// stays, and the old flags bring the old value back.
namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace finder_information = platform::finder_information;
  if (size < 2) return 0;
  const auto flags = static_cast<std::uint16_t>(data[0] << 8U | data[1]);
  const std::string value(reinterpret_cast<const char*>(data) + 2, size - 2);

  const std::optional<std::uint16_t> old = finder_information::flagsIn(value);
  const std::optional<std::string> changed = finder_information::withFlags(value, flags);
  const bool whole = value.size() == finder_information::kAttributeSize;
  require(old.has_value() == whole && changed.has_value() == whole);
  if (!whole) return 0;

  require(changed->size() == value.size() && finder_information::flagsIn(*changed) == flags);
  for (std::size_t i = 0; i < value.size(); ++i) {
    require(i == 8 || i == 9 || (*changed)[i] == value[i]);
  }
  require(finder_information::withFlags(*changed, *old) == value);
  return 0;
}
