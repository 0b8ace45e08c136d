#include "platform/linux/users/XdgUserDirs.h"

#include <gtest/gtest.h>

namespace {

using platform::xdg_user_dirs::Accept;

std::optional<std::string> desktop(std::string_view contents) {
  return platform::xdg_user_dirs::lookUp(contents, "XDG_DESKTOP_DIR", "/home/a",
                                         Accept::anyAbsolute);
}

TEST(XdgUserDirsTest, TheLastLineThatCountsIsTaken) {
  EXPECT_EQ(desktop("XDG_DESKTOP_DIR=\"$HOME/A\"\nXDG_DESKTOP_DIR=\"$HOME/B\"\n"), "/home/a/B");
  EXPECT_EQ(desktop("XDG_DESKTOP_DIR=\"$HOME/A\"\nXDG_DESKTOP_DIR=\"B\"\n"), "/home/a/A");
}

TEST(XdgUserDirsTest, TheLastLineNeedsNoLineBreak) {
  EXPECT_EQ(desktop("XDG_DESKTOP_DIR=\"$HOME/A\""), "/home/a/A");
}

TEST(XdgUserDirsTest, AFolderThatIsTurnedOffIsTheHome) {
  EXPECT_EQ(desktop("XDG_DESKTOP_DIR=\"$HOME/\""), "/home/a");
  EXPECT_EQ(desktop("XDG_DESKTOP_DIR=\"$HOME\""), "/home/a");
}

TEST(XdgUserDirsTest, ALineThatIsNoAssignmentOfTheKeyIsSkipped) {
  for (const std::string_view line :
       {"XDG_DESKTOP_DIRS=\"$HOME/A\"", "#XDG_DESKTOP_DIR=\"$HOME/A\"", "XDG_DESKTOP_DIR=$HOME/A",
        "XDG_DESKTOP_DIR=\"$HOME/A", "XDG_DESKTOP_DIR=\"$HOME/A\\", "XDG_DESKTOP_DIR",
        "export XDG_DESKTOP_DIR=\"$HOME/A\"", "", "\n\n"}) {
    EXPECT_EQ(desktop(line), std::nullopt) << line;
  }
}

TEST(XdgUserDirsTest, AValueWithAZeroByteOrAStepUpIsRefused) {
  EXPECT_EQ(desktop(std::string_view("XDG_DESKTOP_DIR=\"/a\0b\"", 23)), std::nullopt);
  EXPECT_EQ(desktop("XDG_DESKTOP_DIR=\"/a/../b\""), std::nullopt);
}

TEST(XdgUserDirsTest, ABackslashTakesTheNextCharacterAsItIs) {
  EXPECT_EQ(desktop("XDG_DESKTOP_DIR=\"$HOME/\\\"A\\\\\\B\""), "/home/a/\"A\\B");
}

}  // namespace
