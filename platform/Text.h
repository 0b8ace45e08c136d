#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace platform::text {

// Texts are UTF-8. Bytes that are not valid UTF-8 are tolerated everywhere: each counts as one
// character and is passed on unchanged, except where a function says otherwise. All functions are
// thread-safe, block nothing and do not throw but for lack of memory.

// Length in UTF-16 code units, the unit in which the system counts "characters": a character beyond
// U+FFFF counts as two, an invalid byte as one.
std::size_t utf16Length(std::string_view text) noexcept;

// The text without the white space and line breaks at its ends: Unicode's general category Z and
// U+0009 to U+000D and U+0085. Answers a view into `text`.
std::string_view trimmed(std::string_view text) noexcept;

// Lower-cased by Unicode's full, locale-independent mapping.
std::string lowercased(std::string_view text);

// Whether `text` begins with `prefix` when letter case is disregarded, by Unicode's mapping.
bool hasPrefixIgnoringCase(std::string_view text, std::string_view prefix);

// `text` with every invalid byte replaced by U+FFFD: what may be given to a toolkit or a bus.
std::string validUtf8(std::string_view text);

// The platform's numbered string encodings.
enum class Encoding : std::uint32_t {
  ascii = 1,
  utf8 = 4,
  isoLatin1 = 5,
  isoLatin2 = 9,
  utf16 = 10,
  windowsCyrillic = 11,
  windowsLatin1 = 12,
  windowsGreek = 13,
  windowsTurkish = 14,
  windowsLatin2 = 15,
  macRoman = 30,
  utf16BigEndian = 0x90000100,
  utf16LittleEndian = 0x94000100,
  utf32 = 0x8C000100,
  utf32BigEndian = 0x98000100,
  utf32LittleEndian = 0x9C000100,
};

// The bytes decoded to UTF-8, or none when they are not valid in `encoding` or the encoding is
// unknown. No bytes give "". ASCII refuses every byte above 127.
std::optional<std::string> decoded(std::span<const std::byte> bytes, Encoding encoding);

}  // namespace platform::text
