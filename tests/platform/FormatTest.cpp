#include "platform/Format.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include "tests/support/Sandbox.h"

namespace {

using platform::formatted;

// What the C library makes of the same format.
template <class... Arguments>
std::string printed(const char* format, Arguments... arguments) {
  char buffer[8192];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  std::snprintf(buffer, sizeof buffer, format, arguments...);
#pragma GCC diagnostic pop
  return buffer;
}

TEST(FormatTest, TextWithoutDirectivesIsCopied) {
  EXPECT_EQ(formatted(""), "");
  EXPECT_EQ(formatted("Log started"), "Log started");
  EXPECT_EQ(formatted("100%%"), "100%");
}

TEST(FormatTest, ObjectsAndTextsAreFilledInInOrder) {
  EXPECT_EQ(formatted("%@ - %s\n", "now", std::string("Ärger")), "now - Ärger\n");
  EXPECT_EQ(formatted("%@", std::string_view("part")), "part");
  EXPECT_EQ(formatted("%@", std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST(FormatTest, NoneIsPrintedAsTheNullMarker) {
  EXPECT_EQ(formatted("%@ %s", std::optional<std::string>(), std::nullopt), "(null) (null)");
  EXPECT_EQ(formatted("%s", static_cast<const char*>(nullptr)), "(null)");
  EXPECT_EQ(formatted("%i %f %p [%c]", std::nullopt, std::nullopt, std::nullopt, std::nullopt),
            "0 0.000000 0x0 []");
}

TEST(FormatTest, ADirectiveWithoutAnArgumentReadsNoMemory) {
  EXPECT_EQ(formatted("%@ %s %d %x %0.2f %5d|%-5s|"), "(null) (null) 0 0 0.00     0|(null)|");
  EXPECT_EQ(formatted("%d%n%d", 1, 2), "12");
  EXPECT_EQ(formatted("50%d"), "500");
}

TEST(FormatTest, AnArgumentTooManyIsLeftOut) {
  EXPECT_EQ(formatted("%d", 1, 2, "three"), "1");
}

TEST(FormatTest, AnArgumentOfAnotherTypeIsPrintedAsWhatItIs) {
  EXPECT_EQ(formatted("%d %x %f %c", "one", "two", "three", "four"), "one two three four");
  EXPECT_EQ(formatted("%@ %s %@", 42, -7, 2.5), "42 -7 2.5");
  EXPECT_EQ(formatted("%d %x", 2.5, 0.1), "2.5 0.1");
  EXPECT_EQ(formatted("%f %.2f", 8, 9U), "8 9");
  EXPECT_EQ(formatted("%d", std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
}

TEST(FormatTest, UnknownAndUnfinishedDirectives) {
  EXPECT_EQ(formatted("%y %5.2w %1$@", "x"), "%y %5.2w %1$@");
  EXPECT_EQ(formatted("100%"), "100");
  EXPECT_EQ(formatted("%-08.3l"), "");
  EXPECT_EQ(formatted("%%%%"), "%%");
  EXPECT_EQ(formatted(formatted("%%%%")), "%");
  EXPECT_EQ(formatted("%\xFF%d", 3),
            "%\xFF"
            "3");
}

TEST(FormatTest, IntegersAgreeWithTheCLibrary) {
  for (const char* flags : {"", "-", "+", " ", "#", "0", "-0", "+0", "# ", "#0", "#-"}) {
    for (const char* size : {"", "1", "12", ".0", ".5", "12.5", "3.9"}) {
      for (const char* conversion : {"d", "i", "u", "x", "X", "o", "hd", "hhu", "hx"}) {
        const std::string format = std::string("[%") + flags + size + conversion + "]";
        for (int number : {0, 1, 42, -1, -42}) {
          EXPECT_EQ(formatted(format, number), printed(format.c_str(), number)) << format;
        }
      }
    }
  }
}

TEST(FormatTest, LengthModifiersTakeTheWholeOfALongNumber) {
  const long least = std::numeric_limits<long>::min();
  EXPECT_EQ(formatted("%ld %lld %qd %zd %td %jd", least, least, least, least, least, least),
            printed("%ld %ld %ld %ld %ld %ld", least, least, least, least, least, least));
  EXPECT_EQ(formatted("%lx %lo", -1L, -1L), "ffffffffffffffff 1777777777777777777777");
  EXPECT_EQ(formatted("%x", -1), "ffffffff");
  EXPECT_EQ(formatted("%x", least), "8000000000000000");
  EXPECT_EQ(formatted("%lu", std::numeric_limits<unsigned long>::max()), "18446744073709551615");
  EXPECT_EQ(formatted("%p", 0xABCU), "0xabc");
}

TEST(FormatTest, FloatingPointAgreesWithTheCLibrary) {
  for (const char* flags : {"", "-", "+", " ", "#", "0", "#0", "+0"}) {
    for (const char* size : {"", "14", ".0", ".1", ".2", "14.3", ".17"}) {
      for (const char* conversion : {"f", "F", "e", "E", "g", "G"}) {
        const std::string format = std::string("[%") + flags + size + conversion + "]";
        for (double number :
             {0.0, -0.0, 0.5, 1.5, 2.5, 8.0, 99.25, 1e-5, 1.5e-4, 123456.0, 1e21, -3.25,
              std::numeric_limits<double>::max(), std::numeric_limits<double>::denorm_min(),
              std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
              std::numeric_limits<double>::quiet_NaN()}) {
          EXPECT_EQ(formatted(format, number), printed(format.c_str(), number)) << format;
        }
      }
    }
  }
}

TEST(FormatTest, TheAlternateGeneralNotationDropsNoZeros) {
  EXPECT_EQ(formatted("%g %#g", 999999.5, 999999.5), "1e+06 1.00000e+06");
}

TEST(FormatTest, NumbersDoNotFollowTheLocale) {
  const test::Sandbox sandbox;
  const std::string make = "localedef -c -i de_DE -f ISO-8859-1 " + sandbox.path("de_DE");
  if (std::system((make + " 2> " + sandbox.path("messages")).c_str()) != 0) {
    GTEST_SKIP() << "no locale with a decimal comma can be made here";
  }
  ::setenv("LOCPATH", sandbox.root().c_str(), 1);
  ASSERT_NE(std::setlocale(LC_ALL, "de_DE"), nullptr);
  ASSERT_EQ(printed("%.2f", 8.0), "8,00");
  EXPECT_EQ(formatted("%0.2f GB", 8.0), "8.00 GB");
}

TEST(FormatTest, WidthAndPrecisionOfATextCountCharacters) {
  EXPECT_EQ(formatted("[%5s][%-5s]", "äö", "äö"), "[   äö][äö   ]");
  EXPECT_EQ(formatted("[%.1s][%.2@][%.0s]", "äö", "äöü", "x"), "[ä][äö][]");
  EXPECT_EQ(formatted("[%.1s][%.2s]", "😀", "😀"), "[][😀]");
  EXPECT_EQ(formatted("[%3s]", "😀"), "[ 😀]");
}

TEST(FormatTest, StarsTakeTheirNumbersFromTheArguments) {
  EXPECT_EQ(formatted("[%*d][%-*d][%*d]", 4, 7, 4, 7, -4, 7), "[   7][7   ][7   ]");
  EXPECT_EQ(formatted("[%.*f][%.*f]", 1, 2.25, -1, 2.0), "[2.2][2.000000]");
  EXPECT_EQ(formatted("[%*d]", "wide", 7), "[7]");
  EXPECT_EQ(formatted("[%*d]"), "[0]");
}

TEST(FormatTest, AbsurdWidthsAndPrecisionsAreLimited) {
  EXPECT_EQ(formatted("%99999999999999999999d", 1).size(), 4096U);
  EXPECT_EQ(formatted("%*d", std::numeric_limits<std::int64_t>::min(), 1).size(), 4096U);
  EXPECT_EQ(formatted("%*d", std::numeric_limits<std::uint64_t>::max(), 1).size(), 4096U);
  EXPECT_EQ(formatted("%.99999f", std::numeric_limits<double>::max()).size(), 309U + 1 + 4096);
  EXPECT_EQ(formatted("%.99999d", 1).size(), 4096U);
}

TEST(FormatTest, CharactersAreUnicodeNumbers) {
  EXPECT_EQ(formatted("%c%c%c|%3c|%-3c|", 'A', 0xE9, 0x1F600, 'x', 'x'), "Aé😀|  x|x  |");
  EXPECT_EQ(formatted("%c%c", 0xD800, -1), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(FormatTest, InvalidUtf8PassesThrough) {
  EXPECT_EQ(formatted("\xC3%s\x80", "\xFF"), "\xC3\xFF\x80");
}

}  // namespace
