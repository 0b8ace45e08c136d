#include "platform/Text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace {

namespace text = platform::text;

TEST(TextTest, LengthIsCountedInUtf16Units) {
  EXPECT_EQ(text::utf16Length(""), 0U);
  EXPECT_EQ(text::utf16Length("abc"), 3U);
  EXPECT_EQ(text::utf16Length("äöü€"), 4U);
  EXPECT_EQ(text::utf16Length("😀"), 2U);
  std::string emoji;
  for (int i = 0; i < 50; ++i) emoji += "😀";
  EXPECT_EQ(text::utf16Length(emoji), 100U);
}

TEST(TextTest, AnInvalidByteCountsAsOne) {
  EXPECT_EQ(text::utf16Length("\xFF\xFE"), 2U);
  EXPECT_EQ(text::utf16Length("a\xC3"), 2U) << "a sequence cut short";
  EXPECT_EQ(text::utf16Length("\xF0\x9F\x98"), 3U);
  EXPECT_EQ(text::utf16Length("\xED\xA0\x80"), 3U) << "a surrogate";
  EXPECT_EQ(text::utf16Length("\xC0\xAF"), 2U) << "an overlong slash";
  EXPECT_EQ(text::utf16Length("\xE0\x80\xAF"), 3U);
  EXPECT_EQ(text::utf16Length("\xF0\x80\x80\xAF"), 4U);
  EXPECT_EQ(text::utf16Length("\xF4\x90\x80\x80"), 4U) << "beyond U+10FFFF";
}

TEST(TextTest, TrimmingTakesWhiteSpaceAndNewlinesOffBothEnds) {
  EXPECT_EQ(text::trimmed("  hello\n"), "hello");
  EXPECT_EQ(text::trimmed("\t\v\f\r\n a b \n"), "a b");
  EXPECT_EQ(text::trimmed("a\n\nb"), "a\n\nb");
  EXPECT_EQ(text::trimmed(" \n\t "), "");
  EXPECT_EQ(text::trimmed(""), "");
}

TEST(TextTest, TrimmingKnowsUnicodesWhiteSpace) {
  for (const char* space : {"\u0085", "\u00A0", "\u1680", "\u2000", "\u2003", "\u200A", "\u2028",
                            "\u2029", "\u202F", "\u205F", "\u3000"}) {
    EXPECT_EQ(text::trimmed(std::string(space) + "ä" + space), "ä");
    EXPECT_EQ(text::trimmed(space), "");
  }
  for (const char* letter : {"\u200B", "\u2007a", "\uFEFF", "\u001F", "\u180E"}) {
    EXPECT_NE(text::trimmed(letter), "") << "not white space";
  }
}

TEST(TextTest, TrimmingLeavesInvalidBytesAlone) {
  EXPECT_EQ(text::trimmed(" \xA0 "), "\xA0") << "half a no-break space";
  EXPECT_EQ(text::trimmed(" \x80\x80\x80\x80\x80 "), "\x80\x80\x80\x80\x80");
  EXPECT_EQ(text::trimmed(" \xC2 "), "\xC2");
  EXPECT_EQ(text::trimmed("\xE3\xC2\xA0"), "\xE3") << "a whole one after half another letter";
}

TEST(TextTest, InvalidBytesAreReplacedOneByOne) {
  EXPECT_EQ(text::validUtf8("grün 😀"), "grün 😀");
  EXPECT_EQ(text::validUtf8("a\xFF\xC3z"), "a\uFFFD\uFFFDz");
  EXPECT_EQ(text::validUtf8("\xE2\x82"), "\uFFFD\uFFFD");
  EXPECT_EQ(text::validUtf8(std::string("\0", 1)), std::string("\0", 1));
}

TEST(TextTest, LowerCasingFollowsUnicodeAndNoLocale) {
  std::setlocale(LC_ALL, "tr_TR.UTF-8");
  EXPECT_EQ(text::lowercased("Title.APP"), "title.app");
  EXPECT_EQ(text::lowercased("ÄÖÜ ΑΒΓ ЖЗ"), "äöü αβγ жз");
  EXPECT_EQ(text::lowercased("İ"), "i\u0307");
  EXPECT_EQ(text::lowercased("\xFFX\xC3"), "\xFFx\xC3");
}

TEST(TextTest, ASigmaAtTheEndOfAWordIsLowerCasedAsOne) {
  EXPECT_EQ(text::lowercased("ΟΔΟΣ"), "οδος");
  EXPECT_EQ(text::lowercased("ΟΔΟΣ ΟΣΑ Σ"), "οδος οσα σ");
  EXPECT_EQ(text::lowercased("ΑΣ'Α ΑΣ."), "ασ'α ας.");
}

TEST(TextTest, PrefixesAreFoundWhateverTheLetterCase) {
  EXPECT_TRUE(text::hasPrefixIgnoringCase("QVUpdateHelper_2026", "qvupdatehelper_"));
  EXPECT_TRUE(text::hasPrefixIgnoringCase("ÄPFEL", "äp"));
  EXPECT_TRUE(text::hasPrefixIgnoringCase("STRASSE", "straße"));
  EXPECT_TRUE(text::hasPrefixIgnoringCase("anything", ""));
  EXPECT_TRUE(text::hasPrefixIgnoringCase("\xFFX", "\xFFx"));
  EXPECT_FALSE(text::hasPrefixIgnoringCase("QVUpdate", "QVUpdateHelper_"));
  EXPECT_FALSE(text::hasPrefixIgnoringCase("xQV", "qv"));
  EXPECT_FALSE(text::hasPrefixIgnoringCase("ß", "s")) << "half a letter";
  EXPECT_FALSE(text::hasPrefixIgnoringCase("", "a"));
}

TEST(TextTest, PrefixesMayHoldAZeroByte) {
  EXPECT_TRUE(text::hasPrefixIgnoringCase(std::string("A\0B", 3), std::string("a\0b", 3)));
  EXPECT_FALSE(text::hasPrefixIgnoringCase(std::string("A\0B", 3), std::string("a\0c", 3)));
}

}  // namespace
