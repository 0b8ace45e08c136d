#include "platform/linux/privilege/PolkitPresence.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "posix/FileDescriptor.h"
#include "tests/support/Sandbox.h"

namespace {

using namespace std::chrono_literals;
using test::Sandbox;
using Clock = std::chrono::steady_clock;

constexpr char kSocket[] = "/run/dbus/system_bus_socket";

// Somebody at the system bus's place who says so much and then nothing any more.
class SilentBus {
 public:
  explicit SilentBus(std::string words) : socket_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{AF_UNIX, {}};
    std::string(kSocket).copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(socket_.get(), 8), 0);
    thread_ = std::thread([this, words = std::move(words)] { speak(words); });
  }
  ~SilentBus() {
    ::shutdown(socket_.get(), SHUT_RDWR);
    thread_.join();
  }
  SilentBus(const SilentBus&) = delete;
  SilentBus& operator=(const SilentBus&) = delete;

 private:
  void speak(const std::string& words) {
    client_.reset(::accept(socket_.get(), nullptr, nullptr));
    if (!words.empty() && client_) ::send(client_.get(), words.data(), words.size(), MSG_NOSIGNAL);
  }

  const posix::FileDescriptor socket_;
  posix::FileDescriptor client_;
  std::thread thread_;
};

class PolkitPresenceTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    ASSERT_EQ(
        ::mount(sandbox_.makeDirectory("bus").c_str(), "/run/dbus", nullptr, MS_BIND, nullptr), 0);
  }
  Sandbox sandbox_;
};

// At the connection, at its first answer, and in the middle of what follows.
INSTANTIATE_TEST_SUITE_P(
    Silence, PolkitPresenceTest,
    testing::Values("", "OK 0123456789abcdef0123456789abcdef\r\n",
                    "OK 0123456789abcdef0123456789abcdef\r\nAGREE_UNIX_FD\r\n"));

TEST_P(PolkitPresenceTest, ABusThatFallsSilentIsGivenUp) {
  const SilentBus bus(GetParam());
  const auto begin = Clock::now();
  EXPECT_FALSE(platform::polkitAnswers(3s));
  EXPECT_LT(Clock::now() - begin, 4s);
}

TEST_F(PolkitPresenceTest, WithoutABusThereIsNoAuthority) {
  EXPECT_FALSE(platform::polkitAnswers(3s));
}

}  // namespace
