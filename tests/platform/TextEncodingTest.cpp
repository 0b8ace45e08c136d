#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <string_view>

#include "platform/Text.h"

namespace {

using platform::text::decoded;
using platform::text::Encoding;
using std::literals::string_view_literals::operator""sv;
using testing::Eq;
using testing::Optional;

std::optional<std::string> text(std::string_view bytes, Encoding encoding) {
  return decoded(std::as_bytes(std::span(bytes)), encoding);
}

constexpr Encoding kAll[] = {Encoding::ascii,
                             Encoding::utf8,
                             Encoding::isoLatin1,
                             Encoding::isoLatin2,
                             Encoding::utf16,
                             Encoding::windowsCyrillic,
                             Encoding::windowsLatin1,
                             Encoding::windowsGreek,
                             Encoding::windowsTurkish,
                             Encoding::windowsLatin2,
                             Encoding::macRoman,
                             Encoding::utf16BigEndian,
                             Encoding::utf16LittleEndian,
                             Encoding::utf32,
                             Encoding::utf32BigEndian,
                             Encoding::utf32LittleEndian};

TEST(TextEncodingTest, NoBytesAreTheEmptyTextInEveryEncoding) {
  for (const Encoding encoding : kAll) EXPECT_THAT(text("", encoding), Optional(Eq("")));
}

TEST(TextEncodingTest, EveryEncodingIsKnownToThisSystem) {
  for (const Encoding encoding : kAll) {
    EXPECT_TRUE(text("abcd\0\0\0\0"sv, encoding) || text("\0\0\0a"sv, encoding) ||
                text("a\0\0\0"sv, encoding))
        << static_cast<unsigned>(encoding);
  }
}

TEST(TextEncodingTest, AsciiRefusesEveryByteAbove127) {
  EXPECT_THAT(text("plain ~\x7f\x01", Encoding::ascii), Optional(Eq("plain ~\x7f\x01")));
  for (int byte = 0x80; byte <= 0xff; ++byte) {
    const char bytes[] = {'a', static_cast<char>(byte)};
    EXPECT_EQ(text({bytes, 2}, Encoding::ascii), std::nullopt) << byte;
  }
  EXPECT_EQ(text("caf\u00e9", Encoding::ascii), std::nullopt);
}

TEST(TextEncodingTest, Utf8IsStrict) {
  EXPECT_THAT(text("caf\u00e9 \U0001F600", Encoding::utf8), Optional(Eq("caf\u00e9 \U0001F600")));
  for (const std::string_view broken :
       {"\xff"sv, "a\xc3"sv, "\xc0\x80"sv, "\xed\xa0\x80"sv, "\xf4\x90\x80\x80"sv, "\xe2\x82"sv}) {
    EXPECT_EQ(text(broken, Encoding::utf8), std::nullopt) << broken;
  }
}

TEST(TextEncodingTest, ANullCharacterIsACharacter) {
  EXPECT_THAT(text("a\0b"sv, Encoding::ascii), Optional(Eq("a\0b"sv)));
  EXPECT_THAT(text("a\0b"sv, Encoding::utf8), Optional(Eq("a\0b"sv)));
}

TEST(TextEncodingTest, SingleByteEncodingsAreRead) {
  EXPECT_THAT(text("\xe9", Encoding::isoLatin1), Optional(Eq("\u00e9")));
  EXPECT_THAT(text("\xb1", Encoding::isoLatin2), Optional(Eq("\u0105")));
  EXPECT_THAT(text("\xc6", Encoding::windowsCyrillic), Optional(Eq("\u0416")));
  EXPECT_THAT(text("\x80", Encoding::windowsLatin1), Optional(Eq("\u20ac")));
  EXPECT_THAT(text("\xe1", Encoding::windowsGreek), Optional(Eq("\u03b1")));
  EXPECT_THAT(text("\xfe", Encoding::windowsTurkish), Optional(Eq("\u015f")));
  EXPECT_THAT(text("\x9c", Encoding::windowsLatin2), Optional(Eq("\u015b")));
  EXPECT_THAT(text("\x8e", Encoding::macRoman), Optional(Eq("\u00e9")));
}

TEST(TextEncodingTest, AByteThatAnEncodingLeavesUndefinedGivesNone) {
  EXPECT_EQ(text("\x81", Encoding::windowsLatin1), std::nullopt);
}

TEST(TextEncodingTest, TheByteOrderMarkDecidesAndIsNotPartOfTheText) {
  EXPECT_THAT(text("\xfe\xff\0a"sv, Encoding::utf16), Optional(Eq("a")));
  EXPECT_THAT(text("\xff\xfe"
                   "a\0"sv,
                   Encoding::utf16),
              Optional(Eq("a")));
  EXPECT_THAT(text("\0\0\xfe\xff\0\0\0a"sv, Encoding::utf32), Optional(Eq("a")));
}

TEST(TextEncodingTest, WideEncodingsOfAGivenOrderAreRead) {
  EXPECT_THAT(text("\xd8\x3d\xde\x00"sv, Encoding::utf16BigEndian), Optional(Eq("\U0001F600")));
  EXPECT_THAT(text("\x3d\xd8\x00\xde"sv, Encoding::utf16LittleEndian), Optional(Eq("\U0001F600")));
  EXPECT_THAT(text("\0\x01\xf6\0"sv, Encoding::utf32BigEndian), Optional(Eq("\U0001F600")));
  EXPECT_THAT(text("\0\xf6\x01\0"sv, Encoding::utf32LittleEndian), Optional(Eq("\U0001F600")));
}

TEST(TextEncodingTest, HalfACharacterInAWideEncodingGivesNone) {
  EXPECT_EQ(text("\0"sv, Encoding::utf16BigEndian), std::nullopt);
  EXPECT_EQ(text("\xd8\x3d"sv, Encoding::utf16BigEndian), std::nullopt);
  EXPECT_EQ(text("\xde\x00\0a"sv, Encoding::utf16BigEndian), std::nullopt);
  EXPECT_EQ(text("\0\0a"sv, Encoding::utf32BigEndian), std::nullopt);
  EXPECT_EQ(text("\0\x11\0\0"sv, Encoding::utf32BigEndian), std::nullopt);
}

TEST(TextEncodingTest, AnUnknownEncodingGivesNone) {
  EXPECT_EQ(text("a", static_cast<Encoding>(0)), std::nullopt);
  EXPECT_EQ(text("", static_cast<Encoding>(4711)), std::nullopt);
}

TEST(TextEncodingTest, ALongTextIsReadWhole) {
  const std::string bytes(1 << 20, '\xe9');
  const auto result = text(bytes, Encoding::isoLatin1);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->size(), 2 * bytes.size());
  EXPECT_EQ(result->substr(result->size() - 2), "\u00e9");
}

TEST(TextEncodingTest, TheProcesssLocaleDoesNotMatter) {
  std::setlocale(LC_ALL, "tr_TR.UTF-8");
  EXPECT_EQ(text("caf\u00e9", Encoding::ascii), std::nullopt);
}

}  // namespace
