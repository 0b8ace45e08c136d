#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/linux/bus/Introspection.h"

// A description as a host may send it. Every method that is found must be named in the text, entity
// references apart.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view description(reinterpret_cast<const char*>(data), size);
  const auto methods =
      platform::introspection::methodsOf(description, "com.quorvale.QVVELMErrorCallbackProtocol");
  const bool plain = description.find('&') == std::string_view::npos;
  for (const std::string& method : methods) {
    // White space in an attribute is normalised on reading.
    const bool blank = method.find(' ') != std::string::npos;
    if (plain && !blank && description.find(method) == std::string_view::npos) std::abort();
  }
  return 0;
}
