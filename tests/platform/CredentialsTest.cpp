#include "platform/linux/agent/Credentials.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>
#include <utility>

#include "posix/FileDescriptor.h"

namespace {

using authentication_agent::Credentials;

class CredentialsTest : public testing::Test {
 protected:
  // What is read of a stream that has these bytes and ends then.
  std::optional<std::pair<std::string, std::string>> readOf(const std::string& bytes) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    receiving_ = posix::FileDescriptor(ends[0]);
    const posix::FileDescriptor sending(ends[1]);
    EXPECT_EQ(::send(sending.get(), bytes.data(), bytes.size(), 0),
              static_cast<ssize_t>(bytes.size()));
    ::shutdown(sending.get(), SHUT_WR);
    Credentials credentials;
    if (!credentials.read(receiving_.get())) return std::nullopt;
    return std::pair(credentials.userName, credentials.password);
  }

  posix::FileDescriptor receiving_;
};

std::string message(const std::string& name, const std::string& password) {
  return name + '\0' + password + '\0';
}

TEST_F(CredentialsTest, ANameAndAPasswordAreReadAsTheyAre) {
  EXPECT_EQ(readOf(message("bert", "correct horse\n\xFF")),
            std::pair(std::string("bert"), std::string("correct horse\n\xFF")));
  EXPECT_EQ(readOf(message("", "")), std::pair(std::string(), std::string()));
}

TEST_F(CredentialsTest, WhatEndsTooSoonIsNone) {
  const std::string whole = message("bert", "secret");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(readOf(whole.substr(0, size)), std::nullopt) << size;
  }
}

TEST_F(CredentialsTest, WhatIsTooLongIsNone) {
  const std::string longest(511, 'x');
  EXPECT_EQ(readOf(message(longest, longest)), std::pair(longest, longest));
  EXPECT_EQ(readOf(message(longest + "x", "secret")), std::nullopt);
  EXPECT_EQ(readOf(message("bert", longest + "x")), std::nullopt);
}

TEST_F(CredentialsTest, NothingFurtherIsRead) {
  ASSERT_TRUE(readOf(message("bert", "secret") + "more"));
  std::array<char, 8> rest{};
  EXPECT_EQ(::read(receiving_.get(), rest.data(), rest.size()), 4);
  EXPECT_EQ(std::string(rest.data()), "more");
}

}  // namespace
