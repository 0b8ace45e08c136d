#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>

#include "platform/FileSystem.h"
#include "tests/support/Sandbox.h"

// Copies of files on which another process has a write lease, as file servers do.
namespace {

namespace fs = platform::file_system;
using test::readFile;
using test::Sandbox;

// Another process with a lease on a file. When somebody else wants the file it says so and, if it
// is an `honest` one, writes what it has held back and lets go.
class LeaseHolder {
 public:
  LeaseHolder(const std::string& file, bool honest) {
    EXPECT_EQ(::pipe2(news_.data(), O_CLOEXEC), 0);
    process_ = ::fork();
    if (process_ == 0) hold(file, honest);
    ::close(news_[1]);
    EXPECT_EQ(next(), 'h') << "no lease to be had here";
  }
  ~LeaseHolder() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    ::close(news_[0]);
  }
  LeaseHolder(const LeaseHolder&) = delete;
  LeaseHolder& operator=(const LeaseHolder&) = delete;

  bool wasAsked() const {
    pollfd entry{news_[0], POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
  }

 private:
  [[noreturn]] void hold(const std::string& file, bool honest) const {
    sigset_t asked;
    ::sigemptyset(&asked);
    ::sigaddset(&asked, SIGIO);
    ::sigprocmask(SIG_BLOCK, &asked, nullptr);
    const int held = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    if (::fcntl(held, F_SETLEASE, F_WRLCK) != 0) ::_exit(1);
    say('h');
    int number = 0;
    ::sigwait(&asked, &number);
    say('a');
    if (honest) {
      [[maybe_unused]] const ssize_t written = ::pwrite(held, "new", 3, 0);
      ::fcntl(held, F_SETLEASE, F_UNLCK);
    }
    while (true) ::pause();
  }

  void say(char word) const { [[maybe_unused]] const ssize_t sent = ::write(news_[1], &word, 1); }

  char next() const {
    char word = 0;
    return ::read(news_[0], &word, 1) == 1 ? word : '\0';
  }

  std::array<int, 2> news_{};
  pid_t process_ = 0;
};

class CancelledOnceAsked : public fs::CopyObserver {
 public:
  explicit CancelledOnceAsked(const LeaseHolder& holder) : holder_(holder) {}
  void bytesCopied(std::uint64_t, const Item&) override {}
  void itemCopied(const Item&) override {}
  bool isCancelled() override { return holder_.wasAsked(); }

 private:
  const LeaseHolder& holder_;
};

TEST(CopyLeaseTest, TheHolderIsWaitedForAndWhatItHeldBackIsCopied) {
  const Sandbox sandbox;
  const std::string file = sandbox.makeFile("tree/file", "old");
  const LeaseHolder holder(file, true);
  const auto status = fs::copy(sandbox.path("tree"), sandbox.path("copy"));
  EXPECT_TRUE(status.ok()) << status.description();
  EXPECT_TRUE(holder.wasAsked());
  EXPECT_EQ(readFile(sandbox.path("copy/file")), "new");
}

TEST(CopyLeaseTest, ACopyThatWaitsForTheHolderCanBeCancelled) {
  const Sandbox sandbox;
  const std::string file = sandbox.makeFile("tree/file", "old");
  const LeaseHolder holder(file, false);
  CancelledOnceAsked observer(holder);
  const auto status = fs::copy(sandbox.path("tree"), sandbox.path("copy"), &observer);
  EXPECT_EQ(status.code(), ECANCELED);
  EXPECT_FALSE(fs::exists(sandbox.path("copy")));
}

}  // namespace
