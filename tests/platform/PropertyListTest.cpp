#include "platform/PropertyList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <clocale>
#include <cstdlib>
#include <limits>

#include "tests/support/Sandbox.h"

namespace {

using namespace std::chrono_literals;
using platform::PropertyList;
using Dictionary = PropertyList::Dictionary;
using Array = PropertyList::Array;
using platform::property_list::Format;
using test::Sandbox;
using testing::Eq;
using testing::HasSubstr;
using testing::Optional;
namespace property_list = platform::property_list;

std::string xml(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n" +
         body + "\n</plist>\n";
}

std::string repeated(const std::string& text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

// A dictionary whose one value is `depth` - 1 arrays in each other.
std::string nestedXml(int depth) {
  return xml("<dict><key>a</key>" + repeated("<array>", depth - 1) +
             repeated("</array>", depth - 1) + "</dict>");
}

Dictionary everyType() {
  const PropertyList::Bytes bytes = {std::byte{0}, std::byte{255}, std::byte{10}};
  return {{"text", std::string("é 😀 <&> \"")},
          {"empty", std::string()},
          {"yes", true},
          {"no", false},
          {"whole", std::int64_t{-5}},
          {"largest", std::numeric_limits<std::int64_t>::max()},
          {"least", std::numeric_limits<std::int64_t>::min()},
          {"real", 0.1},
          {"date", PropertyList::Date(std::chrono::seconds(1321790400))},
          {"bytes", bytes},
          {"array", Array{PropertyList(std::string("a")), PropertyList(Array{})}},
          {"dictionary", Dictionary{{"key", PropertyList(true)}}}};
}

// A binary property list of `objects`, the first of which is the root; references take one byte.
std::string binary(const std::vector<std::string>& objects) {
  std::string bytes = "bplist00";
  std::string table;
  for (const auto& object : objects) {
    table += static_cast<char>(bytes.size() >> 8);
    table += static_cast<char>(bytes.size() & 0xFF);
    bytes += object;
  }
  std::string trailer(32, '\0');
  trailer[6] = 2;
  trailer[7] = 1;
  trailer[15] = static_cast<char>(objects.size());
  trailer[30] = static_cast<char>(bytes.size() >> 8);
  trailer[31] = static_cast<char>(bytes.size() & 0xFF);
  return bytes + table + trailer;
}

TEST(PropertyListTest, EveryTypeSurvivesXml) {
  EXPECT_THAT(property_list::parse(property_list::serialized(everyType(), Format::xml)),
              Optional(Eq(everyType())));
}

TEST(PropertyListTest, EveryTypeSurvivesBinary) {
  EXPECT_THAT(property_list::parse(property_list::serialized(everyType(), Format::binary)),
              Optional(Eq(everyType())));
}

TEST(PropertyListTest, XmlIsReadAsOtherProgramsWriteIt) {
  const auto list = property_list::parse(
      xml("<dict>\n\t<key>launch</key>\n\t<date>2011-11-20T12:00:00Z</date>\n"
          "\t<key>disable-logging</key>\n\t<true/>\n\t<key>name</key><string>A &amp; B</string>"
          "<!-- <array> --><key>raw</key><string><![CDATA[<dict>]]></string></dict>"));
  EXPECT_THAT(
      list, Optional(Eq(Dictionary{{"launch", PropertyList::Date(std::chrono::seconds(1321790400))},
                                   {"disable-logging", true},
                                   {"name", std::string("A & B")},
                                   {"raw", std::string("<dict>")}})));
}

TEST(PropertyListTest, AByteOrderMarkIsSkipped) {
  EXPECT_THAT(property_list::parse("\xEF\xBB\xBF" + xml("<dict/>")), Optional(Eq(Dictionary{})));
}

TEST(PropertyListTest, BinaryKeepsTheFractionOfADateAndXmlTheSecond) {
  const PropertyList::Date date(1321790400s + 123456us);
  const Dictionary list = {{"date", date}};
  const auto binary = property_list::parse(property_list::serialized(list, Format::binary));
  const auto kept = *binary->at("date").get<PropertyList::Date>();
  EXPECT_LT(std::chrono::abs(kept - date), 1us);
  const auto text = property_list::parse(property_list::serialized(list, Format::xml));
  EXPECT_EQ(*text->at("date").get<PropertyList::Date>(), date - 123456us);
}

TEST(PropertyListTest, ADateThatIsReadAndWrittenAgainStaysWhatItIs) {
  Dictionary list = {{"date", PropertyList::Date(1321790400s + 123456789ns)}};
  list = *property_list::parse(property_list::serialized(list, Format::binary));
  const Dictionary once = list;
  for (int i = 0; i < 100; ++i) {
    list = *property_list::parse(property_list::serialized(list, Format::binary));
  }
  EXPECT_EQ(list, once);
}

TEST(PropertyListTest, DatesLongBeforeAndAfterNowAreKept) {
  const Dictionary list = {
      {"early", PropertyList::Date(std::chrono::sys_days(std::chrono::year(1700) / 1 / 1))},
      {"late", PropertyList::Date(std::chrono::sys_days(std::chrono::year(2250) / 1 / 1))}};
  EXPECT_THAT(property_list::parse(property_list::serialized(list, Format::binary)),
              Optional(Eq(list)));
}

TEST(PropertyListTest, ADateBeyondTheClockBecomesItsFirstOrLast) {
  for (const auto& [sign, expected] : {std::pair("\x7f", PropertyList::Date::max()),
                                       std::pair("\xff", PropertyList::Date::min())}) {
    const auto list =
        property_list::parse(binary({std::string("\xD1\x01\x02", 3),
                                     "\x51"
                                     "d",
                                     "\x33" + std::string(sign) + "\xf0" + std::string(6, '\0')}));
    ASSERT_TRUE(list);
    EXPECT_EQ(*list->at("d").get<PropertyList::Date>(), expected);
    const auto again = property_list::parse(property_list::serialized(*list, Format::binary));
    EXPECT_THAT(again, Optional(Eq(*list)));
  }
}

TEST(PropertyListTest, NumbersDoNotDependOnTheLocale) {
  const Sandbox sandbox;
  const std::string source =
      sandbox.makeFile("source",
                       "LC_CTYPE\ncopy \"POSIX\"\nEND LC_CTYPE\nLC_NUMERIC\ndecimal_point \",\"\n"
                       "thousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\n");
  // Its status is a failure all the same, for the categories that are not there.
  static_cast<void>(std::system(
      ("localedef -c -i " + source + " -f ANSI_X3.4-1968 " + sandbox.path("comma") + " 2>/dev/null")
          .c_str()));
  ::setenv("LOCPATH", sandbox.root().c_str(), 1);
  if (std::setlocale(LC_NUMERIC, "comma") == nullptr) {
    GTEST_SKIP() << "needs localedef, to make a locale with a decimal comma";
  }
  ASSERT_STREQ(std::localeconv()->decimal_point, ",");
  const Dictionary list = {{"real", 1234.5}};
  const std::string text = property_list::serialized(list, Format::xml);
  EXPECT_THAT(text, HasSubstr("1234.5"));
  EXPECT_THAT(property_list::parse(text), Optional(Eq(list)));
}

TEST(PropertyListTest, AReferenceInAnArchiveStaysOne) {
  const std::string bytes = binary({std::string("\xD1\x01\x02", 3),
                                    "\x51"
                                    "k",
                                    "\x80\x07"});
  const auto list = property_list::parse(bytes);
  EXPECT_THAT(
      list, Optional(Eq(Dictionary{{"k", Dictionary{{"CF$UID", PropertyList(std::int64_t{7})}}}})));
  EXPECT_THAT(property_list::serialized(*list, Format::binary), HasSubstr("\x80\x07"));
}

TEST(PropertyListTest, ReferencesOfEverySizeAreKept) {
  for (const std::int64_t number : {0LL, 255LL, 256LL, 65536LL, 0xFFFFFFFFLL, 1LL << 40}) {
    const Dictionary list = {{"k", Dictionary{{"CF$UID", number}}}};
    for (const Format format : {Format::xml, Format::binary}) {
      EXPECT_THAT(property_list::parse(property_list::serialized(list, format)),
                  Optional(Eq(list)));
    }
  }
}

TEST(PropertyListTest, WhatIsNoDictionaryIsNone) {
  EXPECT_EQ(property_list::parse(""), std::nullopt);
  EXPECT_EQ(property_list::parse("launch = 1;"), std::nullopt);
  EXPECT_EQ(property_list::parse(xml("<array/>")), std::nullopt);
  EXPECT_EQ(property_list::parse(xml("<string>dict</string>")), std::nullopt);
  EXPECT_EQ(property_list::parse(xml("<dict><key>a</key>")), std::nullopt);
  EXPECT_EQ(property_list::parse(std::string(100, '\0')), std::nullopt);
  EXPECT_EQ(property_list::parse("bplist00"), std::nullopt);
}

TEST(PropertyListTest, EveryCutOfAFileIsNoneOrSafe) {
  for (const Format format : {Format::xml, Format::binary}) {
    const std::string whole = property_list::serialized(everyType(), format);
    for (std::size_t length = 0; length < whole.size(); ++length) {
      const auto list = property_list::parse(whole.substr(0, length));
      if (list) {
        EXPECT_EQ(format, Format::xml) << "cut at " << length;
      }
    }
  }
}

TEST(PropertyListTest, EveryByteCanBeBrokenSafely) {
  for (const Format format : {Format::xml, Format::binary}) {
    const std::string whole = property_list::serialized(everyType(), format);
    for (std::size_t at = 0; at < whole.size(); ++at) {
      for (const char wrong : {'\0', '\x7f', '\xff', '<'}) {
        std::string broken = whole;
        broken[at] = wrong;
        (void)property_list::parse(broken);
      }
    }
  }
}

TEST(PropertyListTest, NestingIsTakenUpTo512Levels) {
  EXPECT_TRUE(property_list::parse(nestedXml(512)));
  EXPECT_FALSE(property_list::parse(nestedXml(513)));
}

TEST(PropertyListTest, AMillionLevelsAreRefusedWithoutExhaustingTheStack) {
  EXPECT_FALSE(property_list::parse(nestedXml(1'000'000)));
}

TEST(PropertyListTest, NestingCannotHideBehindClosingTagsThatAreNone) {
  for (const std::string hidden :
       {"<!-- </array> -->", "<?x </array> ?>", "<!DOCTYPE [ </array> ]>", "<true a=\"</array>\"/>",
        "<![CDATA[</array>]]>", "</arrayx>"}) {
    EXPECT_FALSE(
        property_list::parse(xml("<dict><key>a</key>" + repeated("<array>" + hidden, 200'000))))
        << hidden;
  }
}

TEST(PropertyListTest, OpeningTagsWithoutAnEndAreRefusedAtOnce) {
  EXPECT_FALSE(property_list::parse(std::string(8 << 20, '<')));
  EXPECT_FALSE(property_list::parse(std::string(8 << 20, '<') + ">"));
  EXPECT_FALSE(property_list::parse(repeated("<!--", 1 << 20)));
}

TEST(PropertyListTest, MoreKeysAndValuesThanAnybodyKeepsAreRefused) {
  const std::string item = "<true/>";
  const auto listOf = [&](int items) {
    return xml("<dict><key>a</key><array>" + repeated(item, items) + "</array></dict>");
  };
  EXPECT_TRUE(property_list::parse(listOf(50'000)));
  EXPECT_FALSE(property_list::parse(listOf(200'000)));
}

TEST(PropertyListTest, BinaryNestingIsTakenUpTo512Levels) {
  for (const int arrays : {511, 512}) {
    std::string bytes = "bplist00";
    std::string table;
    const auto add = [&](const std::string& object) {
      table += static_cast<char>(bytes.size() >> 8);
      table += static_cast<char>(bytes.size() & 0xFF);
      bytes += object;
    };
    add(std::string("\xD1\x00\x01\x00\x02", 5));
    add("\x51"
        "a");
    for (int i = 1; i < arrays; ++i) {
      const int next = i + 2;
      add(std::string("\xA1") + static_cast<char>(next >> 8) + static_cast<char>(next & 0xFF));
    }
    add("\xA0");
    std::string trailer(32, '\0');
    trailer[6] = 2;
    trailer[7] = 2;
    trailer[14] = static_cast<char>((arrays + 2) >> 8);
    trailer[15] = static_cast<char>((arrays + 2) & 0xFF);
    trailer[30] = static_cast<char>(bytes.size() >> 8);
    trailer[31] = static_cast<char>(bytes.size() & 0xFF);
    EXPECT_EQ(property_list::parse(bytes + table + trailer).has_value(), arrays == 511) << arrays;
  }
}

TEST(PropertyListTest, ABinaryListThatHoldsItselfIsRefused) {
  EXPECT_FALSE(property_list::parse(binary({std::string("\xD1\x01\x00", 3),
                                            "\x51"
                                            "a"})));
  EXPECT_FALSE(property_list::parse(binary({std::string("\xD1\x01\x02", 3),
                                            "\x51"
                                            "a",
                                            std::string("\xA1\x02", 2)})));
}

TEST(PropertyListTest, ABinaryListWithAZeroCharacterInATextIsRefused) {
  for (const std::string& key : {std::string("\x52"
                                             "a\0",
                                             3),
                                 std::string("\x62\0a\0\0", 5), std::string("\x51\0", 2)}) {
    EXPECT_FALSE(property_list::parse(binary({std::string("\xD1\x01\x02", 3), key, "\x09"})));
    EXPECT_FALSE(property_list::parse(binary({std::string("\xD1\x01\x02", 3),
                                              "\x51"
                                              "k",
                                              key})));
  }
}

// Forty arrays, each of which holds the next one twice: 2^40 values in 300 bytes.
TEST(PropertyListTest, ABinaryListThatGrowsWithoutBoundIsRefused) {
  std::vector<std::string> objects = {std::string("\xD1\x01\x02", 3),
                                      "\x51"
                                      "a"};
  for (int i = 0; i < 40; ++i) {
    const char next = static_cast<char>(i + 3);
    objects.push_back(std::string("\xA2") + next + next);
  }
  objects.push_back("\x09");
  EXPECT_FALSE(property_list::parse(binary(objects)));
}

TEST(PropertyListTest, AnObjectThatSeveralShareIsReadForEach) {
  const auto list = property_list::parse(binary({std::string("\xD1\x01\x02", 3),
                                                 "\x51"
                                                 "a",
                                                 std::string("\xA2\x03\x03", 3),
                                                 "\x51"
                                                 "x"}));
  const PropertyList x(std::string("x"));
  EXPECT_THAT(list, Optional(Eq(Dictionary{{"a", Array{x, x}}})));
}

TEST(PropertyListTest, BytesThatAreNotUtf8BecomeTheReplacementCharacter) {
  const Dictionary list = {{"a\xff", std::string("b\xc3")}};
  for (const Format format : {Format::xml, Format::binary}) {
    EXPECT_THAT(property_list::parse(property_list::serialized(list, format)),
                Optional(Eq(Dictionary{{"a\uFFFD", std::string("b\uFFFD")}})));
  }
}

TEST(PropertyListTest, ThousandsOfKeysAreRead) {
  Dictionary list;
  for (int i = 0; i < 5'000; ++i) list.emplace("key" + std::to_string(i), std::int64_t{i});
  for (const Format format : {Format::xml, Format::binary}) {
    EXPECT_THAT(property_list::parse(property_list::serialized(list, format)), Optional(Eq(list)));
  }
}

TEST(PropertyListTest, FilesAreReadAndReplacedAsAWhole) {
  const Sandbox sandbox;
  const std::string path = sandbox.makeFile("list.plist", "old");
  EXPECT_EQ(property_list::read(path), std::nullopt);
  ASSERT_TRUE(property_list::write(path, everyType(), Format::binary).ok());
  EXPECT_THAT(property_list::read(path), Optional(Eq(everyType())));
  EXPECT_THAT(test::readFile(path), testing::StartsWith("bplist00"));
  ASSERT_TRUE(property_list::write(path, everyType(), Format::xml).ok());
  EXPECT_THAT(test::readFile(path), testing::StartsWith("<?xml"));
}

TEST(PropertyListTest, AFileThatCannotBeReadIsNone) {
  const Sandbox sandbox;
  EXPECT_EQ(property_list::read(sandbox.path("missing")), std::nullopt);
  EXPECT_EQ(property_list::read(sandbox.root()), std::nullopt);
  EXPECT_EQ(property_list::read(""), std::nullopt);
  ASSERT_EQ(::mkfifo(sandbox.path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(property_list::read(sandbox.path("pipe")), std::nullopt);
}

TEST(PropertyListTest, ADamagedFileIsSetAsideAndAWholeOneStays) {
  const Sandbox sandbox;
  const std::string path = sandbox.makeFile("list.plist", "damaged");
  sandbox.makeFile("list.plist.damaged", "older");
  property_list::setAsideDamaged(path);
  EXPECT_EQ(test::readFile(path + ".damaged"), "older");
  EXPECT_EQ(test::readFile(path + ".damaged-2"), "damaged");
  property_list::setAsideDamaged(path);
  ASSERT_TRUE(property_list::write(path, {}, Format::xml).ok());
  property_list::setAsideDamaged(path);
  EXPECT_TRUE(property_list::read(path));
}

TEST(PropertyListTest, OnlyAFileIsSetAside) {
  const Sandbox sandbox;
  const std::string folder = sandbox.makeDirectory("folder");
  const std::string link = sandbox.path("link");
  ASSERT_EQ(::symlink("nowhere", link.c_str()), 0);
  for (const std::string& path : {folder, link}) {
    property_list::setAsideDamaged(path);
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    EXPECT_NE(::lstat((path + ".damaged").c_str(), &status), 0) << path;
  }
}

TEST(PropertyListTest, MergingKeepsTheOtherKeysAndSetsADamagedFileAside) {
  const Sandbox sandbox;
  const std::string path = sandbox.makeFile("list.plist", "damaged");
  ASSERT_TRUE(property_list::merge(path, {{"one", 1}}, std::chrono::seconds(1)).ok());
  ASSERT_TRUE(property_list::merge(path, {{"two", 2}}, std::chrono::seconds(1)).ok());
  const PropertyList::Dictionary expected = {{"one", 1}, {"two", 2}};
  EXPECT_EQ(property_list::read(path), expected);
  EXPECT_EQ(test::readFile(path + ".damaged"), "damaged");
}

TEST(PropertyListTest, ASwitchIsOnByTheTextOneOrANumberEqualToYes) {
  for (const PropertyList& on : {PropertyList(std::string("1")), PropertyList(true),
                                 PropertyList(std::int64_t{1}), PropertyList(1.0)}) {
    EXPECT_TRUE(on.isSwitchedOn());
  }
  for (const PropertyList& off :
       {PropertyList(std::string("YES")), PropertyList(std::string("true")),
        PropertyList(std::string("01")), PropertyList(std::string()), PropertyList(false),
        PropertyList(std::int64_t{2}), PropertyList(std::int64_t{0}), PropertyList(0.5),
        PropertyList(Array{PropertyList(true)}), PropertyList(PropertyList::Date())}) {
    EXPECT_FALSE(off.isSwitchedOn());
  }
}

TEST(PropertyListTest, TruthIsReadAsUserDefaultsReadIt) {
  for (const char* text : {"YES", "yes", "Y", "true", "T", "1", "9x", " \t+007", "-1", "yonder"}) {
    EXPECT_TRUE(PropertyList(std::string(text)).boolValue()) << text;
  }
  for (const char* text : {"", "NO", "false", "0", "000", "on", " ", "+", "--1", "0N"}) {
    EXPECT_FALSE(PropertyList(std::string(text)).boolValue()) << text;
  }
  EXPECT_TRUE(PropertyList(std::int64_t{2}).boolValue());
  EXPECT_TRUE(PropertyList(0.5).boolValue());
  EXPECT_FALSE(PropertyList(0.0).boolValue());
  EXPECT_FALSE(PropertyList(Dictionary{}).boolValue());
}

}  // namespace
