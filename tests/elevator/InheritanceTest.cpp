#include "elevator/Inheritance.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <optional>
#include <string>

#include "channel/Messages.h"
#include "channel/Packet.h"
#include "platform/linux/privilege/ElevatorChannel.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

using channel::Kind;
using platform::ElevatorChannel;
using test::Sandbox;
using testing::HasSubstr;

// Runs the built elevator with `input` as its standard input, after `prepare` in its process.
pid_t startElevator(int input, const std::function<void()>& prepare) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  ::dup2(input, STDIN_FILENO);
  prepare();
  ::execl(QV_TEST_ELEVATOR, QV_TEST_ELEVATOR, nullptr);
  ::_exit(127);
}

int exitStatusOf(pid_t child) {
  int status = -1;
  if (!test::waitFor([&] { return ::waitpid(child, &status, WNOHANG) == child; })) {
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void nothing() {}

class InheritanceTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  }
};

// --- Who may start it ---

TEST_F(InheritanceTest, ItStartsForItsParentAndEndsWithTheChannel) {
  channel::ChannelPair pair = channel::makeChannel();
  const pid_t child = startElevator(pair.other.get(), nothing);
  pair.other = posix::FileDescriptor();
  ElevatorChannel channel(std::move(pair.one));
  EXPECT_EQ(channel.ask(Kind::hello, {}, 0).sender, child);
  channel.close();
  EXPECT_EQ(exitStatusOf(child), 0);
}

TEST_F(InheritanceTest, ItRefusesWhatIsNoChannel) {
  const posix::FileDescriptor nowhere(::open("/dev/null", O_RDWR | O_CLOEXEC));
  EXPECT_EQ(exitStatusOf(startElevator(nowhere.get(), nothing)), 1);
  std::array<int, 2> stream{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, stream.data()), 0);
  EXPECT_EQ(exitStatusOf(startElevator(stream[0], nothing)), 1);
  EXPECT_EQ(exitStatusOf(startElevator(nowhere.get(), [] { ::close(STDIN_FILENO); })), 1);
}

TEST_F(InheritanceTest, ItRefusesToRunAsAUser) {
  const channel::ChannelPair pair = channel::makeChannel();
  EXPECT_EQ(exitStatusOf(startElevator(pair.other.get(),
                                       [] { ASSERT_EQ(::setuid(Sandbox::kConsoleUserId), 0); })),
            1);
}

// Makes the channel as somebody else would, in a child that keeps its effective user while it does.
TEST_F(InheritanceTest, ItRefusesTheChannelOfAUserForWhomItWasNotStarted) {
  ASSERT_EQ(::seteuid(Sandbox::kConsoleUserId), 0);
  const channel::ChannelPair pair = channel::makeChannel();
  ASSERT_EQ(::seteuid(0), 0);
  const auto startedFor = [&pair](const char* user) {
    return exitStatusOf(startElevator(pair.other.get(), [user] {
      if (user != nullptr) ::setenv("PKEXEC_UID", user, 1);
    }));
  };
  EXPECT_EQ(startedFor(nullptr), 1);
  EXPECT_EQ(startedFor(""), 1);
  EXPECT_EQ(startedFor("0"), 1);
  EXPECT_EQ(startedFor("61002"), 1);
  EXPECT_EQ(startedFor("61001x"), 1);
  EXPECT_EQ(startedFor("-1"), 1);
  EXPECT_EQ(startedFor("4294967295"), 1);

  const pid_t child = startElevator(pair.other.get(), [] { ::setenv("PKEXEC_UID", "61001", 1); });
  ASSERT_TRUE(channel::send(pair.one.get(), *encoded(channel::Request{Kind::hello, 1, {}})));
  EXPECT_TRUE(channel::waitReadable(pair.one.get(), std::chrono::seconds(10)));
  ::kill(child, SIGKILL);
  exitStatusOf(child);
}

TEST_F(InheritanceTest, ItRefusesAChannelThatItsParentDidNotMake) {
  channel::ChannelPair pair = channel::makeChannel();
  // The parent of the elevator is the child here.
  const pid_t between = ::fork();
  if (between == 0) ::_exit(exitStatusOf(startElevator(pair.other.get(), nothing)));
  EXPECT_EQ(exitStatusOf(between), 1);
}

TEST_F(InheritanceTest, WhatASessionsEndSendsEndsItNot) {
  channel::ChannelPair pair = channel::makeChannel();
  const pid_t child = startElevator(pair.other.get(), nothing);
  pair.other = posix::FileDescriptor();
  ElevatorChannel channel(std::move(pair.one));
  ASSERT_EQ(channel.ask(Kind::hello, {}, 0).status, 0);
  for (const int number : {SIGHUP, SIGTERM}) {
    EXPECT_EQ(::kill(child, number), 0);
    EXPECT_EQ(channel.ask(Kind::hello, {}, 0).status, 0) << number;
  }
  channel.close();
  EXPECT_EQ(exitStatusOf(child), 0);
}

// The pseudo terminal of a person, both of its ends.
struct Terminal {
  Terminal() : master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
    EXPECT_EQ(::grantpt(master.get()), 0);
    EXPECT_EQ(::unlockpt(master.get()), 0);
    path = ::ptsname(master.get());
    slave = posix::FileDescriptor(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  }

  // Returns when the terminal has seen the key, and so has sent its signal.
  void press(char key, const std::string& echo) {
    EXPECT_EQ(::write(master.get(), &key, 1), 1);
    EXPECT_TRUE(test::waitFor([&] {
      std::array<char, 64> buffer{};
      const ssize_t size = ::read(master.get(), buffer.data(), buffer.size());
      if (size > 0) shown.append(buffer.data(), static_cast<std::size_t>(size));
      return shown.find(echo) != std::string::npos;
    })) << echo;
  }

  posix::FileDescriptor master;
  posix::FileDescriptor slave;
  std::string path;
  std::string shown;
};

TEST_F(InheritanceTest, ATerminalThatItCannotLeaveEndsAndStopsItNot) {
  channel::ChannelPair pair = channel::makeChannel();
  Terminal terminal;
  const pid_t child = startElevator(pair.other.get(), [&] {
    ::setsid();
    ::close(::open(terminal.path.c_str(), O_RDWR | O_CLOEXEC));
  });
  pair.other = posix::FileDescriptor();
  ElevatorChannel channel(std::move(pair.one));
  ASSERT_EQ(channel.ask(Kind::hello, {}, 0).status, 0);
  terminal.press('\3', "^C");
  terminal.press('\34', "^\\");
  terminal.press('\32', "^Z");
  EXPECT_EQ(channel.ask(Kind::hello, {}, 0).status, 0);
  terminal.master = posix::FileDescriptor();
  EXPECT_EQ(channel.ask(Kind::hello, {}, 0).status, 0);
  channel.close();
  EXPECT_EQ(exitStatusOf(child), 0);
}

// --- What it gets rid of ---

void makeAMess() {
  ::umask(0);
  ::setenv("BASH_ENV", "/tmp/evil", 1);
  ::setenv("LD_LIBRARY_PATH", "/tmp/evil", 1);
  ::setenv("PATH", "/tmp/evil", 1);
  [[maybe_unused]] const int moved = ::chdir("/tmp");
  for (const int number : {SIGHUP, SIGTERM, SIGCHLD, SIGPIPE}) ::signal(number, SIG_IGN);
  // By the kernel's own call: the C library keeps these two for itself.
  const std::array<unsigned long, 4> ignored = {1, 0, 0, 0};
  for (const int number : {32, 33}) {
    ::syscall(SYS_rt_sigaction, number, ignored.data(), nullptr, std::size_t{8});
  }
  for (const auto resource : {RLIMIT_MEMLOCK, RLIMIT_MSGQUEUE, RLIMIT_SIGPENDING, RLIMIT_RTPRIO}) {
    rlimit little{};
    ::getrlimit(resource, &little);
    little.rlim_cur = std::min<rlim_t>(7, little.rlim_max);
    ::setrlimit(resource, &little);
  }
  sigset_t all;
  ::sigfillset(&all);
  ::sigprocmask(SIG_SETMASK, &all, nullptr);
  const rlimit little{4096, RLIM_INFINITY};
  ::setrlimit(RLIMIT_FSIZE, &little);
  const rlimit core{RLIM_INFINITY, RLIM_INFINITY};
  ::setrlimit(RLIMIT_CORE, &core);
  ::setpriority(PRIO_PROCESS, 0, 15);
  cpu_set_t first;
  CPU_ZERO(&first);
  CPU_SET(0, &first);
  ::sched_setaffinity(0, sizeof first, &first);
  constexpr int kThisProcess = 1;
  constexpr int kIdleClass = 3 << 13;
  ::syscall(SYS_ioprio_set, kThisProcess, 0, kIdleClass);
  std::ofstream("/proc/self/oom_score_adj") << "500";
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  // A stray descriptor, an alarm that would end the process, and a terminal's worth of ends.
  ::dup2(::open("/etc/passwd", O_RDONLY), 77);
  const itimerval soon{{0, 0}, {0, 300000}};
  ::setitimer(ITIMER_REAL, &soon, nullptr);
}

class AfterAMessTest : public InheritanceTest {
 protected:
  void SetUp() override {
    InheritanceTest::SetUp();
    if (IsSkipped()) return;
    channel::ChannelPair pair = channel::makeChannel();
    child_ = startElevator(pair.other.get(), makeAMess);
    channel_.emplace(std::move(pair.one));
  }

  void TearDown() override {
    if (IsSkipped()) return;
    channel_->close();
    EXPECT_EQ(exitStatusOf(child_), 0);
  }

  // What a shell that the elevator runs says to a script.
  std::string say(const std::string& script) {
    auto answer = channel_->ask(Kind::runPiped, {"/bin/sh", "-c", script}, 2);
    EXPECT_EQ(answer.status, 0);
    if (answer.status != 0) return {};
    std::string text;
    std::array<char, 4096> buffer{};
    for (ssize_t size = 0;
         (size = ::read(answer.descriptors[0].get(), buffer.data(), buffer.size())) > 0;) {
      text.append(buffer.data(), static_cast<std::size_t>(size));
    }
    return text;
  }

  pid_t child_ = 0;
  std::optional<ElevatorChannel> channel_;
};

TEST_F(AfterAMessTest, AToolFindsAWorldOfItsOwn) {
  EXPECT_EQ(say("umask; pwd; id -u; id -g"), "0022\n/\n0\n0\n");
  EXPECT_EQ(say("env | sort"),
            "HOME=/root\nLANG=C.UTF-8\n"
            "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\nPWD=/\n");
  EXPECT_EQ(say("ulimit -f; ulimit -c; nice; cat /proc/self/oom_score_adj"),
            "unlimited\n0\n0\n0\n");
  EXPECT_EQ(say("nproc"), std::to_string(::sysconf(_SC_NPROCESSORS_ONLN)) + "\n");
}

TEST_F(AfterAMessTest, AToolReadsAndWritesNoLaterThanOthers) {
  EXPECT_THAT(say("ionice"), testing::Not(HasSubstr("idle")));
}

TEST_F(AfterAMessTest, WhatAToolLeavesBehindIsNotTheElevators) {
  const std::string orphan =
      "parent() { cut -d\" \" -f4 /proc/$$/stat; }; "
      "while [ $(parent) = $MOTHER ]; do sleep 0.01; done; parent";
  const std::string newParent = say("export MOTHER=$$; sh -c '" + orphan + "' &");
  EXPECT_NE(newParent, "");
  EXPECT_NE(newParent, std::to_string(child_) + "\n");
}

TEST_F(AfterAMessTest, AToolHasNoSignalBlockedAndIgnoresOnlyWhatASessionsEndSends) {
  EXPECT_EQ(say("grep ^SigBlk /proc/self/status"), "SigBlk:\t0000000000000000\n");
  // Those of number 1 and 15.
  EXPECT_EQ(say("grep ^SigIgn /proc/self/status"), "SigIgn:\t0000000000004001\n");
}

TEST_F(AfterAMessTest, AToolHasTheLimitsOfTheSystem) {
  const std::string limits = say("cat /proc/self/limits");
  for (const char* name : {"locked memory", "pending signals", "msgqueue size"}) {
    EXPECT_THAT(limits, HasSubstr(name));
    EXPECT_THAT(limits, testing::Not(testing::ContainsRegex(std::string(name) + " +7 ")));
  }
  EXPECT_THAT(limits, testing::ContainsRegex("realtime priority +0 +0 "));
}

TEST_F(AfterAMessTest, AToolHasItsThreeEndsAndWhatTellsOfItsOwn) {
  // The fifth is the one by which ls reads the folder.
  EXPECT_EQ(say("ls /proc/self/fd"), "0\n1\n2\n3\n4\n");
  EXPECT_EQ(say("readlink /proc/self/fd/0 /proc/self/fd/2"), "/dev/null\n/dev/null\n");
}

TEST_F(AfterAMessTest, AToolHasASessionOfItsOwn) {
  EXPECT_EQ(say("set -- $(cat /proc/self/stat); [ \"$6\" = $$ ] && echo own"), "own\n");
}

TEST_F(AfterAMessTest, TheElevatorHasOnlyItsChannelAndNoAlarmEndsIt) {
  const std::string fds = "/proc/" + std::to_string(child_) + "/fd";
  ASSERT_EQ(channel_->ask(Kind::hello, {}, 0).status, 0);
  EXPECT_EQ(say("sleep 0.3; ls " + fds + " | wc -l"), "9\n")
      << "its ends, the channel and its user, what tells of its end, this tool and its report";
  EXPECT_THAT(say("ls -l " + fds), testing::Not(HasSubstr("passwd")));
  // While it starts a tool it has them blocked for a moment.
  EXPECT_TRUE(test::waitFor([this] {
    return test::readFile("/proc/" + std::to_string(child_) + "/status")
               .find("SigBlk:\t0000000000000000") != std::string::npos;
  }));
  // The alarm would have come by now.
  EXPECT_EQ(say("sleep 0.4; echo there"), "there\n");
  EXPECT_EQ(channel_->ask(Kind::hello, {}, 0).status, 0);
}

TEST_F(AfterAMessTest, AScriptOfRootIsRunThoughItsDescriptorIsClosedOnExec) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  EXPECT_THAT(say("/usr/bin/ldd --version | head -n 1"), HasSubstr("ldd"));
  auto answer = channel_->ask(Kind::runPiped, {"/usr/bin/ldd", "--version"}, 2);
  ASSERT_EQ(answer.status, 0);
  std::array<char, 3> start{};
  EXPECT_EQ(::read(answer.descriptors[0].get(), start.data(), start.size()), 3);
  EXPECT_EQ(std::string(start.data(), 3), "ldd");
}

}  // namespace
