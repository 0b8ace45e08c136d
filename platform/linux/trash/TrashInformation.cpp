#include "platform/linux/trash/TrashInformation.h"

#include <array>
#include <climits>

#include "platform/Path.h"
#include "platform/Utf8.h"

namespace platform {
namespace {

constexpr std::string_view kSuffix = ".trashinfo";

bool staysAsItIs(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("/-._~").find(c) != std::string_view::npos;
}

std::string percentEncoded(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (const char c : text) {
    if (staysAsItIs(c)) {
      encoded += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    encoded += '%';
    encoded += kDigits[byte >> 4U];
    encoded += kDigits[byte & 0xFU];
  }
  return encoded;
}

std::string localTime(std::time_t date) {
  std::tm parts{};
  ::localtime_r(&date, &parts);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  return {text.data(), length};
}

// At most `size` bytes of the beginning: whole characters, where the bytes are characters.
std::string_view shortened(std::string_view text, std::size_t size) {
  constexpr std::size_t kLongestCharacter = 4;
  if (text.size() <= size) return text;
  std::size_t end = size;
  while (end > 0 && size - end < kLongestCharacter && utf8::isContinuation(text[end])) --end;
  const bool isCharacter = end > 0 && !utf8::isContinuation(text[end]);
  return text.substr(0, isCharacter ? end : size);
}

}  // namespace

std::string trashInformation(std::string_view original, std::time_t date) {
  return "[Trash Info]\nPath=" + percentEncoded(original) + "\nDeletionDate=" + localTime(date) +
         "\n";
}

std::string trashInformationName(std::string_view name) {
  return std::string(name).append(kSuffix);
}

std::string itemOfTrashInformation(std::string_view name) {
  if (!name.ends_with(kSuffix)) return "";
  return std::string(name.substr(0, name.size() - kSuffix.size()));
}

std::string nameInTrash(std::string_view name, unsigned attempt) {
  constexpr std::size_t kLongest = NAME_MAX - kSuffix.size();
  std::string extension = path::extension(name);
  if (!extension.empty()) extension.insert(0, 1, '.');
  std::string_view stem = name.substr(0, name.size() - extension.size());
  const std::string number = attempt > 1 ? " " + std::to_string(attempt) : "";
  // An extension that leaves no room for a name is none.
  if (extension.size() + number.size() >= kLongest) {
    extension.clear();
    stem = name;
  }
  return std::string(shortened(stem, kLongest - extension.size() - number.size())) + number +
         extension;
}

}  // namespace platform
