#include "platform/Wildcard.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using platform::isLike;

TEST(WildcardTest, AStarStandsForAnyRunAndForNothing) {
  EXPECT_TRUE(isLike("", "*"));
  EXPECT_TRUE(isLike("a.txt", "*"));
  EXPECT_TRUE(isLike("a.txt", "*.txt"));
  EXPECT_TRUE(isLike(".txt", "*.txt"));
  EXPECT_TRUE(isLike("a.txt", "a*.txt"));
  EXPECT_TRUE(isLike("a.txt", "a**t"));
  EXPECT_TRUE(isLike("aXbXc", "*X*X*"));
  EXPECT_FALSE(isLike("a.txt.gz", "*.txt"));
  EXPECT_FALSE(isLike("a", "a*b"));
}

TEST(WildcardTest, AStarMatchesADotAtTheBeginning) {
  EXPECT_TRUE(isLike(".hidden", "*"));
  EXPECT_TRUE(isLike(".hidden", "*den"));
}

TEST(WildcardTest, AQuestionMarkStandsForExactlyOneCharacter) {
  EXPECT_TRUE(isLike("abc", "a?c"));
  EXPECT_FALSE(isLike("ac", "a?c"));
  EXPECT_FALSE(isLike("abbc", "a?c"));
  EXPECT_FALSE(isLike("", "?"));
  EXPECT_TRUE(isLike("\xC3\xA9", "?")) << "a character of two bytes";
  EXPECT_TRUE(isLike("\xF0\x9F\x98\x80", "?")) << "a character of four bytes";
  EXPECT_TRUE(isLike("\xFF", "?")) << "a byte that is not UTF-8";
  EXPECT_TRUE(isLike("x\xC3\xA9z", "*?z"));
  EXPECT_FALSE(isLike("\xC3\xA9", "??"));
}

TEST(WildcardTest, AStarEndsBetweenCharactersOnly) {
  EXPECT_TRUE(isLike("x\xC3\xA9z", "*\xC3\xA9*"));
  EXPECT_FALSE(isLike("x\xC3\xA9", "*\xA9")) << "the second byte of a character";
  EXPECT_TRUE(isLike("x\xA9", "*\xA9")) << "a byte that is a character by itself";
  EXPECT_TRUE(isLike("a1b1.txt", "*1.txt")) << "the first place that begins alike is not the one";
  EXPECT_FALSE(isLike("a1b1.txt", "*1.tx?t"));
}

TEST(WildcardTest, EveryOtherCharacterStandsForItself) {
  EXPECT_TRUE(isLike("[ab]", "[ab]"));
  EXPECT_FALSE(isLike("a", "[ab]"));
  EXPECT_TRUE(isLike("a\\", "a\\"));
  EXPECT_TRUE(isLike("{a,b}x", "{a,b}*"));
  EXPECT_FALSE(isLike("a*", "a\\*")) << "a backslash does not quote";
}

TEST(WildcardTest, CaseCounts) {
  EXPECT_FALSE(isLike("A.TXT", "*.txt"));
}

TEST(WildcardTest, ManyStarsDoNotTakeForever) {
  std::string pattern;
  for (int i = 0; i < 60; ++i) pattern += "*a";
  EXPECT_FALSE(isLike(std::string(255, 'a'), pattern + "*b"));
}

}  // namespace
