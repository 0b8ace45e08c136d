#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/linux/trash/TrashInformation.h"

// Any path is written as three lines of printable ASCII, from which the same path is read back.
namespace {

constexpr std::string_view kBegin = "[Trash Info]\nPath=";
constexpr std::string_view kDate = "\nDeletionDate=";

unsigned char digit(char c) {
  return static_cast<unsigned char>(c <= '9' ? c - '0' : c - 'A' + 10);
}

std::string decoded(std::string_view text) {
  std::string path;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      path += text[i];
      continue;
    }
    if (i + 2 >= text.size()) std::abort();
    path += static_cast<char>(digit(text[i + 1]) * 16 + digit(text[i + 2]));
    i += 2;
  }
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path(reinterpret_cast<const char*>(data), size);
  const std::string text = platform::trashInformation(path, static_cast<std::time_t>(size));
  const std::size_t date = text.find(kDate);
  if (!text.starts_with(kBegin) || date == std::string::npos || text.back() != '\n') std::abort();
  for (const char c : text) {
    if (c != '\n' && (c < ' ' || c > '~')) std::abort();
  }
  if (decoded(std::string_view(text).substr(kBegin.size(), date - kBegin.size())) != path) {
    std::abort();
  }
  return 0;
}
