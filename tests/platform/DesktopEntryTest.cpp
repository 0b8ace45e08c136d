#include "platform/linux/desktop/DesktopEntry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using platform::desktop_entry::Application;
using platform::desktop_entry::fileName;
using platform::desktop_entry::isOurs;
using platform::desktop_entry::serialized;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

Application application(const std::string& executable) {
  return {.name = "Sample",
          .executable = executable,
          .bundle = "/opt/Sample.app",
          .icon = std::nullopt,
          .mediaTypes = {}};
}

TEST(DesktopEntryTest, ThePlainCaseIsWrittenPlainly) {
  EXPECT_EQ(serialized(application("/opt/Sample.app/Contents/Linux/Sample")),
            "[Desktop Entry]\n"
            "Type=Application\n"
            "Version=1.1\n"
            "Name=Sample\n"
            "Exec=\"/opt/Sample.app/Contents/Linux/Sample\" %F\n"
            "TryExec=/opt/Sample.app/Contents/Linux/Sample\n"
            "StartupWMClass=Sample\n"
            "X-Quorvale-Bundle=/opt/Sample.app\n");
}

TEST(DesktopEntryTest, WhatIsSpecialInsideQuotesIsEscapedTwice) {
  EXPECT_THAT(*serialized(application("/a \"b\" `c` $d \\e")),
              HasSubstr("Exec=\"/a \\\\\"b\\\\\" \\\\`c\\\\` \\\\$d \\\\\\\\e\" %F\n"));
}

TEST(DesktopEntryTest, APercentSignIsDoubledAndTheProgramReachedThroughAnother) {
  EXPECT_THAT(*serialized(application("/50% off/%f")),
              HasSubstr("Exec=/usr/bin/nice -n 0 \"/50%% off/%%f\" %F\n"));
}

TEST(DesktopEntryTest, AProgramWithAnEqualSignIsReachedThroughAnother) {
  EXPECT_THAT(*serialized(application("/a=b")), HasSubstr("Exec=/usr/bin/nice -n 0 \"/a=b\" %F\n"));
}

TEST(DesktopEntryTest, APathThatCannotBeWrittenIsRefused) {
  EXPECT_EQ(serialized(application("/a\nExec=/bin/evil")), std::nullopt);
  EXPECT_EQ(serialized(application("/a\tb")), std::nullopt);
  EXPECT_EQ(serialized(application("/a\xFF")), std::nullopt);
  Application odd = application("/a");
  odd.bundle = "/b\r";
  EXPECT_EQ(serialized(odd), std::nullopt);
}

TEST(DesktopEntryTest, ANameIsMadeOneLineOfValidText) {
  Application odd = application("/a");
  odd.name = " Two\nLines\\ \xFF ";
  EXPECT_THAT(*serialized(odd), HasSubstr("Name=Two Lines\\\\ \uFFFD\n"));
}

TEST(DesktopEntryTest, ANameOfNothingBecomesTheProgramsName) {
  Application odd = application("/x/tool");
  odd.name = " \n ";
  EXPECT_THAT(*serialized(odd), HasSubstr("Name=tool\n"));
}

TEST(DesktopEntryTest, OnlyMediaTypesAreListed) {
  Application opener = application("/a");
  opener.mediaTypes = {"text/plain", "no type", "a/b;c/d", "/x", "x/", "application/x-sample+xml"};
  EXPECT_THAT(*serialized(opener), HasSubstr("MimeType=text/plain;application/x-sample+xml;\n"));
}

TEST(DesktopEntryTest, NoMediaTypesMakeNoLine) {
  EXPECT_THAT(*serialized(application("/a")), Not(HasSubstr("MimeType")));
}

TEST(DesktopEntryTest, AnIconThatCannotBeWrittenIsLeftOut) {
  Application pretty = application("/a");
  pretty.icon = "/icons/a.png";
  EXPECT_THAT(*serialized(pretty), HasSubstr("Icon=/icons/a.png\n"));
  pretty.icon = "/icons/\n.png";
  EXPECT_THAT(*serialized(pretty), Not(HasSubstr("Icon=")));
}

TEST(DesktopEntryTest, OurEntriesAreToldFromOthers) {
  EXPECT_TRUE(isOurs(*serialized(application("/a"))));
  EXPECT_FALSE(isOurs("[Desktop Entry]\nType=Application\nName=Theirs\n"));
  EXPECT_FALSE(isOurs("[Desktop Entry]\nComment=X-Quorvale-Bundle=/a\n"));
  EXPECT_FALSE(isOurs(""));
}

TEST(DesktopEntryTest, TheFileIsNamedAfterAnIdentifierThatMayNameOne) {
  EXPECT_EQ(fileName("com.quorvale.Sample-2", "/x/Sample.app"), "com.quorvale.Sample-2.desktop");
}

TEST(DesktopEntryTest, AnIdentifierThatMayNotNamesTheFileAfterTheBundle) {
  for (const char* identifier : {"", "../../evil", "a b", ".hidden", "-rf", "a/b", "\xC3\xA9"}) {
    EXPECT_EQ(fileName(identifier, "/x/My Sample.app"), "My-Sample.desktop") << identifier;
  }
  EXPECT_EQ(fileName(std::string(300, 'a'), "/x/A.app"), "A.desktop");
  EXPECT_EQ(fileName(std::nullopt, "/x/A.app/"), "A.desktop");
}

TEST(DesktopEntryTest, ABundleNameIsCleanedToo) {
  EXPECT_EQ(fileName(std::nullopt, "/x/..app"), "application..desktop");
  EXPECT_EQ(fileName(std::nullopt, "/x/a\nb\xFF.app"), "a-b-.desktop");
  EXPECT_EQ(fileName(std::nullopt, "/x/" + std::string(250, 'a') + ".app"),
            std::string(200, 'a') + ".desktop");
}

}  // namespace
