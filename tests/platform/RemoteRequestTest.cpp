#include "platform/linux/bus/RemoteRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using platform::parsedRemoteAnswer;
using platform::parsedRemoteRequest;
using platform::PropertyList;
using platform::RemoteAnswer;
using platform::RemoteRequest;
using platform::serialized;
using testing::IsEmpty;
using testing::SizeIs;
using Operation = RemoteRequest::Operation;

TEST(RemoteRequestTest, WhatIsAskedIsWhatTheChildReads) {
  const RemoteRequest request = {Operation::perform,
                                 "postErrorString:",
                                 {PropertyList(std::string("größer")), PropertyList(true)}};
  const auto read = parsedRemoteRequest(serialized(request));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->operation, Operation::perform);
  EXPECT_EQ(read->subject, "postErrorString:");
  ASSERT_THAT(read->arguments, SizeIs(2));
  EXPECT_EQ(*read->arguments[0].get<std::string>(), "größer");
}

TEST(RemoteRequestTest, TextsAreMadeValid) {
  const PropertyList::Dictionary fields = {{"\xff key", PropertyList(std::string("\xff"))}};
  const auto read = parsedRemoteRequest(
      serialized(RemoteRequest{Operation::lookUp, "\xff", {PropertyList(fields)}}));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->subject, "\uFFFD");
  const auto& dictionary = *read->arguments[0].get<PropertyList::Dictionary>();
  EXPECT_EQ(*dictionary.at("\uFFFD key").get<std::string>(), "\uFFFD");
}

TEST(RemoteRequestTest, WhatIsNoRequestIsRefused) {
  EXPECT_FALSE(parsedRemoteRequest(""));
  EXPECT_FALSE(parsedRemoteRequest("lookUp"));
  PropertyList::Dictionary fields = {{"operation", PropertyList(std::int64_t{0})},
                                     {"subject", PropertyList(std::string("a"))}};
  const auto message = [&fields] {
    return platform::property_list::serialized(fields, platform::property_list::Format::binary);
  };
  EXPECT_FALSE(parsedRemoteRequest(message())) << "without arguments";
  fields.emplace("arguments", PropertyList(PropertyList::Array()));
  EXPECT_TRUE(parsedRemoteRequest(message()));
  for (const std::int64_t operation : {-1, 4}) {
    fields.insert_or_assign("operation", PropertyList(operation));
    EXPECT_FALSE(parsedRemoteRequest(message())) << operation;
  }
}

TEST(RemoteRequestTest, AnAnswerComesBackAsItWasGiven) {
  using Kind = RemoteAnswer::Kind;
  EXPECT_EQ(parsedRemoteAnswer(serialized(RemoteAnswer{.kind = Kind::yes}))->kind, Kind::yes);
  EXPECT_EQ(parsedRemoteAnswer(serialized(RemoteAnswer{.kind = Kind::no}))->kind, Kind::no);
  const auto raised = parsedRemoteAnswer(serialized(RemoteAnswer{Kind::exception, "name", "a\nb"}));
  ASSERT_TRUE(raised);
  EXPECT_EQ(raised->name, "name");
  EXPECT_EQ(raised->reason, "a\nb");
}

TEST(RemoteRequestTest, ALongReasonIsCutAndAnUnknownAnswerIsNone) {
  const RemoteAnswer answer = {RemoteAnswer::Kind::exception, "name", std::string(10'000, 'x')};
  EXPECT_THAT(serialized(answer), SizeIs(platform::kLargestRemoteAnswer));
  EXPECT_FALSE(parsedRemoteAnswer(""));
  EXPECT_FALSE(parsedRemoteAnswer("?"));
  EXPECT_THAT(parsedRemoteAnswer("eonly a reason")->name, IsEmpty());
}

}  // namespace
