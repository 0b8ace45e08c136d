#include "channel/Messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using channel::encoded;
using channel::Kind;
using channel::parseReply;
using channel::parseRequest;
using channel::Reply;
using channel::Request;
using testing::ElementsAre;

std::string commandPacket() {
  return *encoded(Request{Kind::run, 7, {"/bin/mv", "-f", "/a b", "", "\xff"}});
}

TEST(MessagesTest, ACommandComesThroughAsItIs) {
  const auto request = parseRequest(commandPacket());
  ASSERT_TRUE(request);
  EXPECT_EQ(request->kind, Kind::run);
  EXPECT_EQ(request->id, 7U);
  EXPECT_THAT(request->words, ElementsAre("/bin/mv", "-f", "/a b", "", "\xff"));
}

TEST(MessagesTest, RequestsWithoutACommandComeThrough) {
  for (const Kind kind : {Kind::hello, Kind::newChannel}) {
    const auto request = parseRequest(*encoded(Request{kind, 1, {}}));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->kind, kind);
  }
}

TEST(MessagesTest, AnObservationNamesOneAbsolutePath) {
  const auto request = parseRequest(*encoded(Request{Kind::observe, 1, {"/Applications/A.app"}}));
  ASSERT_TRUE(request);
  EXPECT_THAT(request->words, ElementsAre("/Applications/A.app"));
  EXPECT_FALSE(encoded(Request{Kind::observe, 1, {}}));
  EXPECT_FALSE(encoded(Request{Kind::observe, 1, {"A.app"}}));
  EXPECT_FALSE(encoded(Request{Kind::observe, 1, {"/A.app", "/B.app"}}));
}

TEST(MessagesTest, EveryTruncatedPacketIsRefusedUnlessItEndsBehindAWord) {
  const std::string packet = commandPacket();
  for (std::size_t size = 0; size < packet.size(); ++size) {
    const bool endsBehindAWord = size > 12 && packet[size - 1] == '\0';
    EXPECT_EQ(parseRequest(packet.substr(0, size)).has_value(), endsBehindAWord) << size;
  }
}

TEST(MessagesTest, WhatIsNoRequestIsRefused) {
  const std::string packet = commandPacket();
  std::string otherVersion = packet;
  otherVersion[0] = 'q';
  EXPECT_FALSE(parseRequest(otherVersion));
  for (const char kind : {'\0', '\10', '\xff'}) {
    std::string otherKind = packet;
    otherKind[4] = kind;
    EXPECT_FALSE(parseRequest(otherKind)) << static_cast<int>(kind);
  }
  std::string helloWithWords = packet;
  helloWithWords[4] = static_cast<char>(Kind::hello);
  EXPECT_FALSE(parseRequest(helloWithWords));
}

TEST(MessagesTest, ACommandWithoutAnAbsoluteToolIsRefused) {
  EXPECT_FALSE(encoded(Request{Kind::run, 1, {}}));
  EXPECT_FALSE(encoded(Request{Kind::run, 1, {""}}));
  EXPECT_FALSE(encoded(Request{Kind::runPiped, 1, {"bin/mv"}}));
}

TEST(MessagesTest, AWordWithAZeroByteIsRefusedBecauseItWouldBecomeTwo) {
  EXPECT_FALSE(encoded(Request{Kind::run, 1, {"/bin/rm", std::string("/a\0/b", 5)}}));
}

TEST(MessagesTest, TheLimitsAreExact) {
  const auto withWord = [](std::size_t size) {
    return encoded(Request{Kind::run, 1, {"/t", std::string(size, 'x')}}).has_value();
  };
  EXPECT_TRUE(withWord(channel::kMaxWord));
  EXPECT_FALSE(withWord(channel::kMaxWord + 1));

  std::vector<std::string> words(channel::kMaxWords, "/t");
  EXPECT_TRUE(encoded(Request{Kind::run, 1, words}));
  words.emplace_back("x");
  EXPECT_FALSE(encoded(Request{Kind::run, 1, words}));

  const std::string half(channel::kMaxMessage / 2 - 16, 'x');
  EXPECT_TRUE(encoded(Request{Kind::run, 1, {"/t", half, half}}));
  EXPECT_FALSE(encoded(Request{Kind::run, 1, {"/t", half, half, std::string(32, 'x')}}));
}

TEST(MessagesTest, AReplyComesThroughAndNothingElseDoes) {
  const std::string packet = encoded(Reply{9, 13});
  const auto reply = parseReply(packet);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->id, 9U);
  EXPECT_EQ(reply->status, 13);
  for (std::size_t size = 0; size < packet.size(); ++size) {
    EXPECT_FALSE(parseReply(packet.substr(0, size))) << size;
  }
  EXPECT_FALSE(parseReply(packet + '\0'));
  EXPECT_FALSE(parseReply(encoded(Reply{9, -1}))) << "no error number is negative";
  EXPECT_FALSE(parseReply(commandPacket()));
}

}  // namespace
