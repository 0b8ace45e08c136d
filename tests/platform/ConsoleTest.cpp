#include "platform/Console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <string_view>
#include <thread>

#include "tests/support/Sandbox.h"

namespace {

namespace console = platform::console;

// Gives standard output back to the test when it has been led elsewhere.
class StandardOutputKeeper {
 public:
  StandardOutputKeeper() : saved_(::dup(STDOUT_FILENO)) {}
  ~StandardOutputKeeper() {
    ::dup2(saved_, STDOUT_FILENO);
    ::close(saved_);
  }
  StandardOutputKeeper(const StandardOutputKeeper&) = delete;
  StandardOutputKeeper& operator=(const StandardOutputKeeper&) = delete;

 private:
  int saved_;
};

void leadStandardOutputTo(int descriptor) {
  ASSERT_EQ(::dup2(descriptor, STDOUT_FILENO), STDOUT_FILENO);
  ::close(descriptor);
}

TEST(ConsoleTest, PrintWritesTheTextAsItIs) {
  testing::internal::CaptureStdout();
  console::print("50% of ");
  console::print("it\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "50% of it\n");
}

TEST(ConsoleTest, LinesGoToStandardErrorWithANewline) {
  testing::internal::CaptureStderr();
  console::log("Unable to open %s: %i", "disk", 5);
  console::writeLine("100%");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unable to open disk: 5\n100%\n");
}

TEST(ConsoleTest, ABrokenPipeIsSurvivedAndLeavesNoSignalBehind) {
  std::signal(SIGPIPE, SIG_DFL);
  const StandardOutputKeeper keeper;
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  leadStandardOutputTo(ends[1]);
  ::close(ends[0]);
  console::print("lost\n");
  sigset_t pending;
  ::sigpending(&pending);
  EXPECT_EQ(::sigismember(&pending, SIGPIPE), 0);
  sigset_t mask;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_EQ(::sigismember(&mask, SIGPIPE), 0) << "the caller's mask is as it was";
}

TEST(ConsoleTest, AClosedOrFullStandardOutputIsSurvived) {
  const StandardOutputKeeper keeper;
  leadStandardOutputTo(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  console::print("lost\n");
  ::close(STDOUT_FILENO);
  console::print("lost\n");
}

TEST(ConsoleTest, ATextLargerThanAPipeThatDoesNotBlockArrivesWhole) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const std::string text(1 << 20, 'x');
  std::thread printer([&] {
    const StandardOutputKeeper keeper;
    leadStandardOutputTo(ends[1]);
    ::fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
    console::print(text);
  });
  std::string arrived(2 << 20, '\0');
  std::size_t size = 0;
  for (ssize_t count = 1; count > 0; size += static_cast<std::size_t>(count)) {
    count = ::read(ends[0], arrived.data() + size, arrived.size() - size);
    ASSERT_GE(count, 0);
  }
  printer.join();
  EXPECT_EQ(arrived.substr(0, size), text);
}

TEST(ConsoleTest, LinesReachTheSystemLog) {
  if (!test::Sandbox::canSimulateMachine()) GTEST_SKIP() << test::Sandbox::kNeedsRoot;
  test::Sandbox sandbox;
  sandbox.simulateMachine();
  const std::string devices = sandbox.makeDirectory("dev");
  ASSERT_EQ(::mount(devices.c_str(), "/dev", nullptr, MS_BIND, nullptr), 0);
  const sockaddr_un address{AF_UNIX, "/dev/log"};
  const int receiver = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(::bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);

  console::writeLine("50% left");

  char line[256] = {};
  ASSERT_GT(::recv(receiver, line, sizeof line - 1, MSG_DONTWAIT), 0);
  EXPECT_TRUE(std::string_view(line).ends_with(": 50% left")) << line;

  console::writeLine("a name\nroot: \033[2Jgood news");
  const auto length = ::recv(receiver, line, sizeof line - 1, MSG_DONTWAIT);
  ASSERT_GT(length, 0);
  line[length] = '\0';
  EXPECT_TRUE(std::string_view(line).ends_with(": a name\\x0aroot: \\x1b[2Jgood news")) << line;
  ::close(receiver);
}

}  // namespace
