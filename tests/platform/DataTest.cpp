#include "platform/Data.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <utility>

namespace {

using platform::Data;

constexpr std::byte kA{'a'};
constexpr std::byte kB{'b'};

TEST(DataTest, BytesAreAppendedInOrder) {
  Data data;
  EXPECT_TRUE(data.empty());
  data.append(Data{kA, kB});
  data.append({});
  data.append(Data{kB});
  EXPECT_EQ(data, (Data{kA, kB, kB}));
  EXPECT_EQ(data.size(), 3U);
}

TEST(DataTest, WhatIsWrittenIntoTheRoomBecomesPartOfIt) {
  Data data{kA};
  const std::span<std::byte> room = data.room(1 << 20);
  ASSERT_GE(room.size(), 1U << 20);
  std::memset(room.data(), 'b', room.size());
  EXPECT_EQ(data, Data{kA});
  data.extend(1);
  EXPECT_EQ(data, (Data{kA, kB}));
}

TEST(DataTest, ABlockMayBeAppendedToItself) {
  Data data{kA, kB};
  data.append(data);
  data.append(std::span(data).subspan(3));
  EXPECT_EQ(data, (Data{kA, kB, kA, kB, kB}));
}

TEST(DataTest, ACopyIsItsOwn) {
  Data data{kA};
  Data copy = data;
  copy.append(Data{kB});
  EXPECT_EQ(data, Data{kA});
  data = copy;
  copy = Data{};
  EXPECT_EQ(data, (Data{kA, kB}));
}

TEST(DataTest, AMovedBlockIsEmptyAndUsable) {
  Data data{kA};
  const Data taken = std::move(data);
  EXPECT_EQ(taken, Data{kA});
  data.append(Data{kB});  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(data, Data{kB});
}

TEST(DataTest, ARoomBeyondAllMemoryIsRefusedAndLosesNothing) {
  Data data{kA};
  EXPECT_THROW(data.room(~std::size_t{0} - 1), std::bad_alloc);
  EXPECT_EQ(data, Data{kA});
}

}  // namespace
