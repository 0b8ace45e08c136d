#include "platform/linux/trash/TrashInformation.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

namespace {

using platform::nameInTrash;
using platform::trashInformation;
using platform::trashInformationName;

TEST(TrashInformationTest, PathAndLocalTimeTakeALineEach) {
  ::setenv("TZ", "UTC-2", 1);
  EXPECT_EQ(trashInformation("/x/A b.app", 1000000000),
            "[Trash Info]\nPath=/x/A%20b.app\nDeletionDate=2001-09-09T03:46:40\n");
}

TEST(TrashInformationTest, TheNumberStandsBeforeTheExtension) {
  EXPECT_EQ(nameInTrash("A.app", 1), "A.app");
  EXPECT_EQ(nameInTrash("A.app", 2), "A 2.app");
  EXPECT_EQ(nameInTrash("folder", 10), "folder 10");
  EXPECT_EQ(nameInTrash(".profile", 2), ".profile 2");
}

TEST(TrashInformationTest, ALongNameIsShortenedBetweenCharacters) {
  std::string name;
  for (int i = 0; i < 127; ++i) name += "\xC3\xA9";
  EXPECT_EQ(nameInTrash(name, 1), name.substr(0, 244));
  EXPECT_EQ(nameInTrash(name, 2), name.substr(0, 242) + " 2");
  EXPECT_LE(trashInformationName(nameInTrash(name, 2)).size(), std::size_t{NAME_MAX});
}

TEST(TrashInformationTest, ALongNameThatIsNotUtf8KeepsSomethingOfItself) {
  const std::string name(255, '\x81');
  EXPECT_EQ(nameInTrash(name, 1), name.substr(0, 245));
}

TEST(TrashInformationTest, AnExtensionThatLeavesNoRoomIsNone) {
  const std::string name = "a." + std::string(250, 'x');
  EXPECT_EQ(nameInTrash(name, 1), name.substr(0, 245));
}

}  // namespace
