#include "platform/linux/files/SortedNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace platform {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Names = std::vector<std::string>;

Names sorted(const Names& names) {
  SortedNames sorting;
  for (const std::string& name : names) sorting.add(name, 0);
  Names result;
  sorting.takeAll([&](std::string_view name, unsigned char) { result.emplace_back(name); });
  return result;
}

TEST(SortedNamesTest, NoNamesAreNone) {
  EXPECT_THAT(sorted({}), IsEmpty());
}

TEST(SortedNamesTest, ANameStandsBeforeThoseThatItBegins) {
  EXPECT_THAT(sorted({"file 10", "file 1", "file", "file 12345678901", "file 123456789"}),
              ElementsAre("file", "file 1", "file 10", "file 123456789", "file 12345678901"));
}

TEST(SortedNamesTest, BytesAreComparedWithoutSign) {
  EXPECT_THAT(sorted({"\xFFz", "\xC3\xA4", "z", "Z", "a"}),
              ElementsAre("Z", "a", "z", "\xC3\xA4", "\xFFz"));
}

TEST(SortedNamesTest, WhatDiffersFarBehindCounts) {
  const std::string common(200, 'x');
  EXPECT_THAT(sorted({"a" + common + "2", "a" + common + "1", "b" + common + "0"}),
              ElementsAre("a" + common + "1", "a" + common + "2", "b" + common + "0"));
}

TEST(SortedNamesTest, EachNameKeepsItsType) {
  SortedNames sorting;
  sorting.add("b", 8);
  sorting.add("a", 4);
  std::vector<int> types;
  sorting.takeAll([&](std::string_view, unsigned char type) { types.push_back(type); });
  EXPECT_THAT(types, ElementsAre(4, 8));
}

TEST(SortedNamesTest, ManyNamesStandInTheOrderOfTheirBytes) {
  std::mt19937 random(20261121);
  Names names;
  for (int i = 0; i < 20000; ++i) {
    std::string name = "common beginning ";
    for (auto length = random() % 20; length > 0; --length) {
      name += static_cast<char>(1 + random() % 255);
    }
    names.push_back(std::move(name));
  }
  const Names result = sorted(names);
  std::ranges::sort(names);
  EXPECT_EQ(result, names);
}

}  // namespace
}  // namespace platform
