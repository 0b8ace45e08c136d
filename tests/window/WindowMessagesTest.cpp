#include "window/Messages.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <variant>

namespace window {
namespace {

using ::testing::EndsWith;
using ::testing::IsEmpty;

template <class Message>
std::optional<Message> throughRequest(const Message& message) {
  const std::optional<Request> request = requestIn(encoded(Request(message)));
  if (!request || !std::holds_alternative<Message>(*request)) return std::nullopt;
  return std::get<Message>(*request);
}

class WindowSocketTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_), 0); }
  ~WindowSocketTest() override {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }

  int ends_[2] = {-1, -1};
};

TEST(WindowMessagesTest, ARequestIsReadAsItWasMeant) {
  EXPECT_TRUE(throughRequest(ShowStatusWindow{}));
  EXPECT_TRUE(throughRequest(Activate{}));
  EXPECT_TRUE(throughRequest(StartAnimation{}));
  EXPECT_TRUE(throughRequest(HideStatusWindow{}));
  EXPECT_TRUE(throughRequest(Ping{}));
  EXPECT_EQ(throughRequest(SetStatus{"Relaunching..."})->text, "Relaunching...");
  const std::optional<ShowAlert> alert = throughRequest(ShowAlert{7, "A title", "A message"});
  ASSERT_TRUE(alert);
  EXPECT_EQ(alert->number, 7U);
  EXPECT_EQ(alert->title, "A title");
  EXPECT_EQ(alert->message, "A message");
}

TEST(WindowMessagesTest, AnAnswerIsReadAsItWasMeant) {
  EXPECT_TRUE(std::holds_alternative<Ready>(answerIn(encoded(Answer(Ready{}))).value()));
  EXPECT_TRUE(std::holds_alternative<Alive>(answerIn(encoded(Answer(Alive{}))).value()));
  EXPECT_EQ(std::get<Dismissed>(answerIn(encoded(Answer(Dismissed{9}))).value()).number, 9U);
}

TEST(WindowMessagesTest, WhatIsCutOrHasMoreThanItShouldIsNoMessage) {
  EXPECT_FALSE(requestIn(""));
  EXPECT_FALSE(requestIn("\x7f"));
  EXPECT_FALSE(answerIn("\x7f"));
  const std::string alert = encoded(Request(ShowAlert{7, "A title", "A message"}));
  for (std::size_t size = 0; size < alert.size(); ++size) {
    EXPECT_FALSE(requestIn(alert.substr(0, size))) << size;
  }
  EXPECT_FALSE(requestIn(alert + "x"));
  EXPECT_FALSE(answerIn(encoded(Answer(Ready{})) + "x"));
}

TEST(WindowMessagesTest, ATextThatIsTooLongIsCutBetweenTwoCharacters) {
  std::string text = "x";
  while (text.size() <= kLongestLine) text += "\xc3\xa9";
  const std::string cut = throughRequest(SetStatus{text})->text;
  EXPECT_THAT(cut, EndsWith("\xc3\xa9\xe2\x80\xa6"));
  EXPECT_LE(cut.size(), kLongestLine);
  EXPECT_GT(cut.size(), kLongestLine - 4);
  EXPECT_EQ(text.find(cut.substr(0, cut.size() - 3)), 0U);
}

TEST(WindowMessagesTest, TheLongestRequestFitsIntoAPacket) {
  const std::string text(kLongestMessage * 2, 'x');
  EXPECT_LE(encoded(Request(ShowAlert{7, text, text})).size(), kLongestRequest);
}

TEST_F(WindowSocketTest, APacketArrivesWhole) {
  EXPECT_EQ(send(ends_[0], "packet"), Sent::whole);
  EXPECT_EQ(receive(ends_[1], 6).packet, "packet");
}

TEST_F(WindowSocketTest, NothingThereIsNoEnd) {
  const Received received = receive(ends_[1], 6);
  EXPECT_TRUE(received.open);
  EXPECT_THAT(received.packet, IsEmpty());
}

TEST_F(WindowSocketTest, AFullSocketIsToldAndNotWaitedFor) {
  Sent sent = Sent::whole;
  for (int i = 0; i < 100000 && sent == Sent::whole; ++i) sent = send(ends_[0], "packet");
  EXPECT_EQ(sent, Sent::later);
}

TEST_F(WindowSocketTest, TheOtherEndsEndIsAnEnd) {
  ::close(ends_[0]);
  ends_[0] = -1;
  EXPECT_FALSE(receive(ends_[1], 6).open);
  EXPECT_EQ(send(ends_[1], "packet"), Sent::never);
}

TEST_F(WindowSocketTest, APacketThatIsTooLongIsAnEnd) {
  EXPECT_EQ(send(ends_[0], "packets"), Sent::whole);
  EXPECT_FALSE(receive(ends_[1], 6).open);
}

}  // namespace
}  // namespace window
