#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/Text.h"

namespace platform::text {
namespace {

// iconv(3)'s name of an encoding; null when it is unknown. Without a byte order mark UTF-16 and
// UTF-32 are read in this machine's byte order.
const char* systemName(Encoding encoding) {
  switch (encoding) {
    case Encoding::ascii:
      return "ASCII";
    case Encoding::utf8:
      return "UTF-8";
    case Encoding::isoLatin1:
      return "ISO-8859-1";
    case Encoding::isoLatin2:
      return "ISO-8859-2";
    case Encoding::utf16:
      return "UTF-16";
    case Encoding::windowsCyrillic:
      return "CP1251";
    case Encoding::windowsLatin1:
      return "CP1252";
    case Encoding::windowsGreek:
      return "CP1253";
    case Encoding::windowsTurkish:
      return "CP1254";
    case Encoding::windowsLatin2:
      return "CP1250";
    case Encoding::macRoman:
      return "MACINTOSH";
    case Encoding::utf16BigEndian:
      return "UTF-16BE";
    case Encoding::utf16LittleEndian:
      return "UTF-16LE";
    case Encoding::utf32:
      return "UTF-32";
    case Encoding::utf32BigEndian:
      return "UTF-32BE";
    case Encoding::utf32LittleEndian:
      return "UTF-32LE";
  }
  return nullptr;
}

class Converter {
 public:
  explicit Converter(const char* from) : handle_(::iconv_open("UTF-8", from)) {}
  ~Converter() {
    if (valid()) ::iconv_close(handle_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // Whether this system can read the encoding.
  bool valid() const { return reinterpret_cast<std::intptr_t>(handle_) != -1; }

  std::optional<std::string> convert(std::span<const std::byte> bytes) {
    std::string text;
    std::array<char, 1 << 14> block;
    // iconv changes no input; its parameter is not const for historical reasons.
    char* input = const_cast<char*>(reinterpret_cast<const char*>(bytes.data()));
    std::size_t left = bytes.size();
    while (left > 0) {
      char* output = block.data();
      std::size_t room = block.size();
      const std::size_t result = ::iconv(handle_, &input, &left, &output, &room);
      text.append(block.data(), output);
      // Anything but a full block is bytes that are no text, or half a character at the end.
      if (result == static_cast<std::size_t>(-1) && errno != E2BIG) return std::nullopt;
    }
    return text;
  }

 private:
  const iconv_t handle_;
};

// iconv(3) lets through what lies beyond the last character of Unicode.
std::optional<std::string> strictUtf8(std::span<const std::byte> bytes) {
  std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (validUtf8(text) != text) return std::nullopt;
  return text;
}

}  // namespace

std::optional<std::string> decoded(std::span<const std::byte> bytes, Encoding encoding) {
  const char* const name = systemName(encoding);
  if (name == nullptr) return std::nullopt;
  if (bytes.empty()) return "";
  if (encoding == Encoding::utf8) return strictUtf8(bytes);
  Converter converter(name);
  if (!converter.valid()) return std::nullopt;
  return converter.convert(bytes);
}

}  // namespace platform::text
