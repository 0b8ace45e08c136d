#include "platform/linux/SessionHelperVerbs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

namespace verb = platform::helper_verb;
using testing::ElementsAre;
using testing::IsEmpty;

// What follows the name.
verb::Words arguments(const verb::Words& words) {
  return {words.begin() + 1, words.end()};
}

TEST(SessionHelperVerbsTest, WordsBeginWithTheNameAndKeepTheArgumentsOrder) {
  EXPECT_THAT(verb::words(verb::OpenWith{.application = "/A.app", .path = "/f"}),
              ElementsAre("open-with", "/A.app", "/f"));
  EXPECT_THAT(verb::words(verb::Remote{}), ElementsAre("remote"));
}

TEST(SessionHelperVerbsTest, WhatWasAskedForIsWhatIsRead) {
  const verb::After after{.writers = 2, .turns = 0, .verb = {"open", "/a b"}};
  const auto read = verb::parsed<verb::After>(arguments(verb::words(after)));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->writers, 2);
  EXPECT_EQ(read->turns, 0);
  EXPECT_THAT(read->verb, ElementsAre("open", "/a b"));
}

TEST(SessionHelperVerbsTest, AMissingOrAFurtherArgumentIsRefused) {
  EXPECT_FALSE(verb::parsed<verb::OpenFileWith>(verb::Words{"com.quorvale.Sample"}));
  EXPECT_FALSE(verb::parsed<verb::Open>(verb::Words{"/a", "/b"}));
  EXPECT_FALSE(verb::parsed<verb::Remote>(verb::Words{"now"}));
}

TEST(SessionHelperVerbsTest, ANumberIsPlainAndNotNegative) {
  for (const char* number : {"", "-1", "1x", "+1", " 1", "99999999999"}) {
    EXPECT_FALSE(verb::parsed<verb::After>(verb::Words{number, "0", "open", "/a"})) << number;
  }
}

TEST(SessionHelperVerbsTest, AListTakesAllThatIsLeft) {
  const auto start = verb::parsed<verb::Start>(verb::Words{"/bin/true", "-a", ""});
  ASSERT_TRUE(start);
  EXPECT_THAT(start->command, ElementsAre("/bin/true", "-a", ""));
  EXPECT_THAT(verb::parsed<verb::Start>(verb::Words{})->command, IsEmpty());
}

}  // namespace
