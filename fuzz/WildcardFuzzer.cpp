#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/Wildcard.h"

// A pattern and a name, divided by the first zero. Around any pattern stars match at least what the
// pattern matches; a name without wildcards is like itself.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t zero = input.find('\0');
  const std::string_view pattern = input.substr(0, zero);
  const std::string_view name = zero == std::string_view::npos ? "" : input.substr(zero + 1);

  const bool like = platform::isLike(name, pattern);
  if (like && !platform::isLike(name, std::string("*").append(pattern).append("*"))) std::abort();
  if (pattern.find_first_of("*?") == std::string_view::npos && like != (name == pattern)) {
    std::abort();
  }
  if (!platform::isLike(name, "*")) std::abort();
  return 0;
}
