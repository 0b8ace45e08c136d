#include "elevator/Server.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "channel/Messages.h"
#include "channel/Packet.h"
#include "platform/Privilege.h"
#include "platform/linux/privilege/ElevatorChannel.h"
#include "tests/support/HeldTool.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
using channel::Kind;
using platform::ElevatorChannel;
using test::HeldTool;
using test::readFile;
using test::Sandbox;
using test::waitFor;

constexpr int kLost = platform::privilege::kSessionLost;

bool hasEnded(int channel) {
  pollfd entry{channel, POLLIN, 0};
  return ::poll(&entry, 1, 10000) == 1 && (entry.revents & POLLHUP) != 0;
}

std::string readAll(const posix::FileDescriptor& pipe) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (ssize_t size = 0; (size = ::read(pipe.get(), buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<std::size_t>(size));
  }
  return text;
}

channel::TermStatus reportOn(const posix::FileDescriptor& pipe) {
  channel::TermStatus status = -2;
  EXPECT_EQ(::read(pipe.get(), &status, sizeof status), static_cast<ssize_t>(sizeof status));
  return status;
}

// A server in a process of its own, and a channel to it.
class ServerTest : public testing::Test {
 protected:
  ServerTest() : channel_(startServer()) {}

  void SetUp() override {
    // The tools must be ones that only root can have changed, and the answers must be root's.
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  }

  void TearDown() override {
    channel_.close();
    EXPECT_TRUE(ended_ || serverEnds());
  }

  posix::FileDescriptor startServer() {
    channel::ChannelPair pair = channel::makeChannel();
    server_ = ::fork();
    if (server_ == 0) {
      pair.one = posix::FileDescriptor();
      ::signal(SIGPIPE, SIG_IGN);
      elevator::Server(std::move(pair.other)).run();
      ::_exit(0);
    }
    return std::move(pair.one);
  }

  bool serverEnds() {
    int status = -1;
    ended_ = waitFor([&] { return ::waitpid(server_, &status, WNOHANG) == server_; });
    return ended_ && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

  ElevatorChannel::Answer run(std::vector<std::string> words) {
    return channel_.ask(Kind::run, std::move(words), 0);
  }
  ElevatorChannel::Answer runPiped(std::vector<std::string> words) {
    return channel_.ask(Kind::runPiped, std::move(words), 2);
  }
  // Where the end of the tools on a path is reported.
  posix::FileDescriptor observed(const std::string& path) {
    auto answer = channel_.ask(Kind::observe, {path}, 1);
    EXPECT_EQ(answer.status, 0);
    return answer.status == 0 ? std::move(answer.descriptors[0]) : posix::FileDescriptor();
  }
  int give(pid_t process) { return channel_.ask(Kind::give, {std::to_string(process)}, 0).status; }
  ElevatorChannel::Answer runScript(const std::string& script) {
    return run({"/bin/sh", "-c", script});
  }

  Sandbox sandbox_;
  pid_t server_ = 0;
  bool ended_ = false;
  ElevatorChannel channel_;
};

TEST_F(ServerTest, ItAnswersASignOfLife) {
  EXPECT_EQ(channel_.ask(Kind::hello, {}, 0).status, 0);
}

TEST_F(ServerTest, ItTellsTheOutputAndTheEndOfATool) {
  auto answer = runPiped({"/bin/sh", "-c", "echo hello; exit 3"});
  ASSERT_EQ(answer.status, 0);
  EXPECT_EQ(readAll(answer.descriptors[0]), "hello\n");
  EXPECT_EQ(reportOn(answer.descriptors[1]), 3);
}

TEST_F(ServerTest, ItTellsTheSignalThatEndedATool) {
  auto answer = runPiped({"/bin/sh", "-c", "kill -9 $$"});
  ASSERT_EQ(answer.status, 0);
  EXPECT_EQ(reportOn(answer.descriptors[1]), SIGKILL);
}

TEST_F(ServerTest, AToolThatCannotBeRunIsAnsweredWithTheReason) {
  EXPECT_EQ(run({"/no/tool"}).status, ENOENT);
  EXPECT_EQ(run({sandbox_.makeFile("mine")}).status, EACCES);
  EXPECT_EQ(run({"/bin/true", std::string(channel::kMaxWord + 1, 'x')}).status, E2BIG);
  EXPECT_EQ(run({"/bin/true", std::string("a\0b", 3)}).status, EINVAL);
  EXPECT_EQ(run({"/bin/true"}).status, 0) << "and the channel goes on";
}

TEST_F(ServerTest, ThePathOfAToolEndsInItsName) {
  EXPECT_EQ(run({"/bin/true/"}).status, EINVAL);
}

TEST_F(ServerTest, AToolOutlastsWhatASessionsEndSends) {
  const std::string done = sandbox_.path("done");
  EXPECT_EQ(runScript("kill -TERM $$; kill -HUP $$; mkdir " + done).status, 0);
  EXPECT_TRUE(waitFor([&] { return fs::exists(done); }));
}

TEST_F(ServerTest, TheEndOfToolsIsKnownThoughItWentFirst) {
  const HeldTool held(sandbox_);
  auto life = channel_.ask(Kind::life, {}, 1);
  ASSERT_EQ(life.status, 0);
  const posix::FileDescriptor end = std::move(life.descriptors[0]);
  EXPECT_EQ(runScript(held.script()).status, 0);
  ::kill(server_, SIGKILL);
  ::waitpid(server_, nullptr, 0);
  ended_ = true;
  pollfd entry{end.get(), POLLIN, 0};
  EXPECT_EQ(::poll(&entry, 1, 300), 0) << "the tool still runs";
  held.release();
  EXPECT_EQ(::poll(&entry, 1, 10000), 1);
  EXPECT_EQ(readAll(end), "");
}

// Without descriptors it may look at nothing.
TEST_F(ServerTest, WhileItCannotLookItDoesNotSpin) {
  const auto ticks = [this] {
    std::ifstream stat("/proc/" + std::to_string(server_) + "/stat");
    std::string word;
    for (int i = 0; i < 14; ++i) stat >> word;
    return std::stol(word);
  };
  std::vector<posix::FileDescriptor> reports;
  for (int i = 0; i < 8; ++i) {
    auto answer = runPiped({"/bin/sleep", "3"});
    ASSERT_EQ(answer.status, 0);
    reports.push_back(std::move(answer.descriptors[1]));
  }
  const rlimit none{4, 4};
  ASSERT_EQ(::prlimit(server_, RLIMIT_NOFILE, &none, nullptr), 0);
  EXPECT_TRUE(channel::send(channel_.socket(), *encoded(channel::Request{Kind::hello, 99, {}})));
  const long before = ticks();
  EXPECT_FALSE(waitFor([] { return false; }, std::chrono::milliseconds(1000)));
  // Hundredths of a second of the processor.
  EXPECT_LT(ticks() - before, 20);
  ::kill(server_, SIGKILL);
  ::waitpid(server_, nullptr, 0);
  ended_ = true;
}

TEST_F(ServerTest, OutputThatGoesNowhereStopsNoTool) {
  const std::string done = sandbox_.path("done");
  EXPECT_EQ(runScript("head -c 1000000 /dev/zero; mkdir " + done).status, 0);
  EXPECT_TRUE(waitFor([&] { return fs::exists(done); }));
}

TEST_F(ServerTest, ToolsOnOverlappingPathsRunOneAfterTheOtherInOrder) {
  const HeldTool held(sandbox_);
  const std::string folder = sandbox_.makeDirectory("folder");
  const std::string trace = "echo $1 >>" + sandbox_.path("trace");
  const auto traced = [&](const std::string& before, const char* name, const std::string& path) {
    EXPECT_EQ(run({"/bin/sh", "-c", before + trace, "sh", name, path}).status, 0);
  };
  traced(held.script(), "first", folder + "/A.app");
  traced("", "second", folder);
  traced("", "third", folder + "/B.app");
  traced("", "beside", "/no/such/path");
  EXPECT_TRUE(waitFor([&] { return readFile(sandbox_.path("trace")) == "beside\n"; }));
  held.release();
  EXPECT_TRUE(waitFor([&] {
    return readFile(sandbox_.path("trace")) == "beside\nfirst\nsecond\nthird\n";
  })) << readFile(sandbox_.path("trace"));
}

TEST_F(ServerTest, ASlowMoveAndACopyOntoItsPlaceLoseNothing) {
  if (::system("unshare -m true") != 0) GTEST_SKIP() << "needs mounts";
  // Across file systems a move copies and removes; a copy in the middle of it would merge.
  const std::string place = sandbox_.makeDirectory("place");
  const std::string app = place + "/A.app";
  for (int i = 0; i < 300; ++i) {
    sandbox_.makeFile("place/A.app/old" + std::to_string(i), "old");
    sandbox_.makeFile("new/A.app/new" + std::to_string(i), "new");
  }
  const std::string elsewhere = "/dev/shm/qv-test-" + std::to_string(::getpid());
  fs::create_directory(elsewhere);
  EXPECT_EQ(run({"/bin/mv", "-f", app, elsewhere + "/A.app"}).status, 0);
  EXPECT_EQ(run({"/bin/cp", "-f", "-p", "-R", sandbox_.path("new/A.app"), place}).status, 0);
  EXPECT_EQ(reportOn(observed(place)), 0);
  const auto count = [](const std::string& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
  };
  EXPECT_EQ(count(app), 300);
  EXPECT_TRUE(fs::exists(app + "/new0"));
  EXPECT_EQ(count(elsewhere + "/A.app"), 300);
  EXPECT_TRUE(fs::exists(elsewhere + "/A.app/old299"));
  fs::remove_all(elsewhere);
}

TEST_F(ServerTest, WhatWaitsIsStartedThoughEverybodyHasGone) {
  const HeldTool held(sandbox_);
  const std::string folder = sandbox_.makeDirectory("folder");
  EXPECT_EQ(run({"/bin/sh", "-c", held.script(), "sh", folder}).status, 0);
  EXPECT_EQ(run({"/bin/mkdir", folder + "/made"}).status, 0);
  channel_.close();
  held.release();
  EXPECT_TRUE(serverEnds());
  EXPECT_TRUE(waitFor([&] { return fs::exists(folder + "/made"); }));
}

TEST_F(ServerTest, AToolThatRunsIsLeftAndNotWaitedFor) {
  const HeldTool held(sandbox_);
  const std::string done = sandbox_.path("done");
  EXPECT_EQ(runScript(held.script() + "mkdir " + done).status, 0);
  channel_.close();
  EXPECT_TRUE(serverEnds());
  EXPECT_FALSE(fs::exists(done));
  held.release();
  EXPECT_TRUE(waitFor([&] { return fs::exists(done); }));
}

TEST_F(ServerTest, ItStaysForThoseWhoWaitForAnEnd) {
  const HeldTool held(sandbox_);
  auto answer = runPiped({"/bin/sh", "-c", held.script() + "exit 5"});
  ASSERT_EQ(answer.status, 0);
  channel_.close();
  held.release();
  EXPECT_EQ(reportOn(answer.descriptors[1]), 5);
  answer.descriptors.clear();
  EXPECT_TRUE(serverEnds());
}

// --- Observers ---

bool isReadable(const posix::FileDescriptor& pipe) {
  pollfd entry{pipe.get(), POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1;
}

TEST_F(ServerTest, AnObserverLearnsWhenAllOnAPathHaveEndedAndHowTheLastDid) {
  const HeldTool held(sandbox_);
  const std::string app = sandbox_.makeDirectory("folder/A.app");
  EXPECT_EQ(run({"/bin/sh", "-c", held.script() + "exit 3", "sh", app + "/inside"}).status, 0);
  EXPECT_EQ(run({"/bin/sh", "-c", "exit 7", "sh", sandbox_.path("folder")}).status, 0);
  const posix::FileDescriptor report = observed(app);
  EXPECT_FALSE(isReadable(report));
  held.release();
  EXPECT_EQ(reportOn(report), 7);
  EXPECT_EQ(readAll(report), "") << "and nothing more";
  EXPECT_EQ(reportOn(observed(app)), 7) << "it is remembered";
  EXPECT_EQ(reportOn(observed(app + "/other")), 7) << "the folder was named";
}

TEST_F(ServerTest, WhatHappensElsewhereDelaysNoObserver) {
  const HeldTool held(sandbox_);
  EXPECT_EQ(run({"/bin/sh", "-c", held.script(), "sh", "/no/such/A.app"}).status, 0);
  EXPECT_EQ(run({"/bin/false", "/no/such/B.app"}).status, 0);
  const posix::FileDescriptor report = observed("/no/such/C.app");
  EXPECT_TRUE(isReadable(report));
  EXPECT_EQ(reportOn(report), 0);
  held.release();
}

TEST_F(ServerTest, AnObserverFindsTheItemsThatALinkLeadsTo) {
  const HeldTool held(sandbox_);
  const std::string app = sandbox_.makeDirectory("folder/A.app");
  fs::create_directory_symlink(sandbox_.path("folder"), sandbox_.path("link"));
  EXPECT_EQ(run({"/bin/sh", "-c", held.script(), "sh", app}).status, 0);
  const posix::FileDescriptor report = observed(sandbox_.path("link/A.app"));
  EXPECT_FALSE(isReadable(report));
  held.release();
  EXPECT_EQ(reportOn(report), 0);
}

TEST_F(ServerTest, TheEndThatItsAskerIsToldIsWaitedForButDoesNotCount) {
  const HeldTool held(sandbox_);
  const std::string app = sandbox_.makeDirectory("A.app");
  EXPECT_EQ(run({"/bin/sh", "-c", "exit 2", "sh", app}).status, 0);
  auto piped = runPiped({"/bin/sh", "-c", held.script(), "sh", app});
  const posix::FileDescriptor report = observed(app);
  EXPECT_FALSE(isReadable(report));
  held.release();
  EXPECT_EQ(reportOn(piped.descriptors[1]), 0);
  EXPECT_EQ(reportOn(report), 2);
}

TEST_F(ServerTest, ReadingTheOutputOfAToolThatMustWaitKeepsNobodyWaiting) {
  const HeldTool held(sandbox_);
  const std::string app = sandbox_.makeDirectory("A.app");
  EXPECT_EQ(run({"/bin/sh", "-c", held.script(), "sh", app}).status, 0);
  auto piped = runPiped({"/bin/sh", "-c", "echo late; exit 4", "sh", app});
  EXPECT_EQ(readAll(piped.descriptors[0]), "");
  held.release();
  EXPECT_EQ(reportOn(piped.descriptors[1]), 4);
}

TEST_F(ServerTest, AToolThatCannotBeStartedAfterAllHasFailed) {
  const HeldTool held(sandbox_);
  const std::string tool = "/usr/local/bin/qv-test-" + std::to_string(::getpid());
  fs::copy_file("/bin/true", tool);
  const std::string path = sandbox_.path("x");
  EXPECT_EQ(run({"/bin/sh", "-c", held.script(), "sh", path}).status, 0);
  std::ofstream(tool, std::ios::trunc) << "no program";
  EXPECT_EQ(run({tool, path}).status, 0);
  const posix::FileDescriptor report = observed(path);
  held.release();
  EXPECT_EQ(reportOn(report), -1);
  fs::remove(tool);
}

TEST_F(ServerTest, ItStaysForObserversAfterEverybodyElseHasGone) {
  const HeldTool held(sandbox_);
  const std::string path = sandbox_.path("x");
  EXPECT_EQ(run({"/bin/sh", "-c", held.script() + "exit 6", "sh", path}).status, 0);
  posix::FileDescriptor report = observed(path);
  channel_.close();
  held.release();
  EXPECT_EQ(reportOn(report), 6);
  report = posix::FileDescriptor();
  EXPECT_TRUE(serverEnds());
}

TEST_F(ServerTest, ThereIsAnEndToObservers) {
  const HeldTool held(sandbox_);
  const std::string path = sandbox_.path("x");
  const rlimit many{4096, 4096};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &many), 0);
  EXPECT_EQ(run({"/bin/sh", "-c", held.script(), "sh", path}).status, 0);
  std::vector<posix::FileDescriptor> reports;
  ElevatorChannel::Answer answer;
  while ((answer = channel_.ask(Kind::observe, {path}, 1)).status == 0) {
    reports.push_back(std::move(answer.descriptors[0]));
  }
  EXPECT_EQ(answer.status, EAGAIN);
  EXPECT_EQ(reports.size(), elevator::Jobs::kMostObservers);
  held.release();
  for (const posix::FileDescriptor& report : reports) EXPECT_EQ(reportOn(report), 0);
  EXPECT_EQ(reportOn(observed(path)), 0) << "and then there is room again";
}

// Together they are more than the server may have descriptors, which is as many as it may look at.
TEST_F(ServerTest, ManyObserversOfManyToolsHoldNothingUp) {
  constexpr std::size_t kMany = 40;
  const rlimit limit{kMany * 8, kMany * 8};
  ASSERT_EQ(::prlimit(server_, RLIMIT_NOFILE, &limit, nullptr), 0);
  const HeldTool held(sandbox_);
  const std::string path = sandbox_.path("x");
  EXPECT_EQ(run({"/bin/sh", "-c", held.script(), "sh", path}).status, 0);
  for (std::size_t i = 0; i < kMany; ++i) EXPECT_EQ(run({"/bin/true", path}).status, 0);
  std::vector<posix::FileDescriptor> reports;
  for (std::size_t i = 0; i < kMany; ++i) reports.push_back(observed(path));
  channel_.close();
  held.release();
  EXPECT_TRUE(waitFor([&] { return isReadable(reports.back()); }));
  reports.clear();
  EXPECT_TRUE(serverEnds());
}

TEST_F(ServerTest, OnlyTheLatestEndsAreRemembered) {
  EXPECT_EQ(run({"/bin/false", "/no/such/A.app"}).status, 0);
  for (std::size_t i = 0; i < elevator::Jobs::kMostRemembered; ++i) {
    EXPECT_EQ(reportOn(observed("/no/such/A.app")), 1) << i;
    const std::string path = "/no/such/" + std::to_string(i);
    EXPECT_EQ(run({"/bin/false", path}).status, 0);
    EXPECT_EQ(reportOn(observed(path)), 1);
  }
  EXPECT_EQ(reportOn(observed("/no/such/A.app")), 0);
}

TEST_F(ServerTest, ManyToolsAreAllRun) {
  const std::string folder = sandbox_.makeDirectory("many");
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(run({"/bin/mkdir", folder + "/" + std::to_string(i)}).status, 0);
  }
  EXPECT_EQ(reportOn(observed(folder)), 0);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 200);
}

TEST_F(ServerTest, AsManyFilesAsAPersonMayHaveWaitForASlowTool) {
  const HeldTool held(sandbox_);
  const std::string path = sandbox_.path("x");
  EXPECT_EQ(run({"/bin/sh", "-c", held.script(), "sh", path}).status, 0);
  const rlimit many{16384, 16384};
  ASSERT_EQ(::prlimit(server_, RLIMIT_NOFILE, &many, nullptr), 0);
  for (int i = 0; i < 6000; ++i) {
    ASSERT_EQ(run({"/bin/true", path + "/" + std::to_string(i)}).status, 0) << i;
  }
  held.release();
  ::kill(server_, SIGKILL);
  ::waitpid(server_, nullptr, 0);
  ended_ = true;
}

TEST_F(ServerTest, AFullQueueIsSaidToBeAndLosesNothing) {
  const HeldTool held(sandbox_);
  const std::string path = sandbox_.path("x");
  const std::string bulk(120 * 1024, 'x');
  EXPECT_EQ(run({"/bin/sh", "-c", held.script(), "sh", path}).status, 0);
  int accepted = 0;
  int status = 0;
  while ((status = run({"/bin/true", path, bulk}).status) == 0 && accepted < 1000) ++accepted;
  EXPECT_EQ(status, EAGAIN);
  EXPECT_GT(accepted, 200);
  held.release();
  EXPECT_EQ(reportOn(observed(path)), 0);
  EXPECT_EQ(run({"/bin/true", path, bulk}).status, 0);
}

// --- More channels ---

TEST_F(ServerTest, ANewChannelWorksAndOutlivesTheFirst) {
  auto answer = channel_.ask(Kind::newChannel, {}, 1);
  ASSERT_EQ(answer.status, 0);
  ElevatorChannel second(std::move(answer.descriptors[0]));
  ASSERT_EQ(give(::getpid()), 0);
  channel_.close();
  EXPECT_EQ(second.ask(Kind::run, {"/bin/true"}, 0).status, 0);
  second.close();
  EXPECT_TRUE(serverEnds());
}

// Whoever else takes its descriptor may be faster than the child that it is for.
TEST_F(ServerTest, ANewChannelIsUsedByTheOneAloneThatItIsGivenTo) {
  auto answer = channel_.ask(Kind::newChannel, {}, 1);
  ASSERT_EQ(answer.status, 0);
  ElevatorChannel stolen(std::move(answer.descriptors[0]));
  ASSERT_TRUE(stolen.sendHello());
  EXPECT_EQ(channel_.ask(Kind::hello, {}, 0).status, 0);
  pollfd entry{stolen.socket(), POLLIN, 0};
  EXPECT_EQ(::poll(&entry, 1, 100), 0) << "it was not given yet";
  const pid_t child = ::fork();
  if (child == 0) {
    ::pause();
    ::_exit(0);
  }
  ASSERT_EQ(give(child), 0);
  EXPECT_TRUE(hasEnded(stolen.socket()));
  EXPECT_EQ(give(child), ENOENT) << "there is none left";
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

TEST_F(ServerTest, ThereIsAnEndToNewChannels) {
  std::vector<posix::FileDescriptor> channels;
  ElevatorChannel::Answer answer;
  while ((answer = channel_.ask(Kind::newChannel, {}, 1)).status == 0) {
    channels.push_back(std::move(answer.descriptors[0]));
  }
  EXPECT_EQ(answer.status, EAGAIN);
  EXPECT_EQ(channels.size(), elevator::Server::kMostChannels - 1);
}

// --- Attacks ---

TEST_F(ServerTest, AnotherProcessOnTheSameChannelLosesItForBoth) {
  EXPECT_EQ(channel_.ask(Kind::hello, {}, 0).status, 0);
  const pid_t thief = ::fork();
  if (thief == 0) {
    const auto answer = run({"/bin/mkdir", sandbox_.path("stolen")});
    ::_exit(answer.status == kLost ? 0 : 1);
  }
  int status = -1;
  ::waitpid(thief, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(hasEnded(channel_.socket()));
  EXPECT_TRUE(serverEnds());
  EXPECT_FALSE(fs::exists(sandbox_.path("stolen")));
}

TEST_F(ServerTest, AChannelGoesWithTheProcessThatUsedItThoughAnotherHoldsItOpen) {
  auto answer = channel_.ask(Kind::newChannel, {}, 1);
  ASSERT_EQ(answer.status, 0);
  const int held = answer.descriptors[0].get();
  const pid_t user = ::fork();
  if (user == 0) {
    const std::string last =
        *encoded(channel::Request{Kind::run, 1, {"/bin/mkdir", sandbox_.path("made")}});
    ::_exit(channel::send(held, last) ? 0 : 1);
  }
  EXPECT_EQ(give(user), 0);
  int status = -1;
  ::waitpid(user, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(waitFor([&] {
    pollfd entry{held, 0, 0};
    return ::poll(&entry, 1, 0) == 1 && (entry.revents & POLLHUP) != 0;
  }));
  EXPECT_EQ(channel_.ask(Kind::hello, {}, 0).status, 0) << "the others go on";
}

TEST_F(ServerTest, WhatAProcessAskedForJustBeforeItsEndIsDone) {
  const std::string made = sandbox_.path("made");
  ::kill(server_, SIGSTOP);
  const pid_t user = ::fork();
  if (user == 0) {
    const std::string hello = *encoded(channel::Request{Kind::hello, 1, {}});
    const std::string last = *encoded(channel::Request{Kind::run, 2, {"/bin/mkdir", made}});
    const int channel = channel_.socket();
    ::_exit(channel::send(channel, hello) && channel::send(channel, last) ? 0 : 1);
  }
  int status = -1;
  ::waitpid(user, &status, 0);
  EXPECT_EQ(status, 0);
  ::kill(server_, SIGCONT);
  EXPECT_TRUE(waitFor([&] { return fs::exists(made); }));
}

// Each is sent on a channel of its own; the server must close that one and serve the first.
class HostilePacketTest : public ServerTest {
 protected:
  void expectRefused(const std::string& packet, const std::vector<int>& descriptors = {}) {
    auto answer = channel_.ask(Kind::newChannel, {}, 1);
    ASSERT_EQ(answer.status, 0);
    const int victim = answer.descriptors[0].get();
    ASSERT_EQ(give(::getpid()), 0);
    ASSERT_TRUE(channel::send(victim, packet, descriptors));
    EXPECT_TRUE(hasEnded(victim)) << packet.size();
    EXPECT_EQ(channel_.ask(Kind::hello, {}, 0).status, 0);
  }
};

TEST_F(HostilePacketTest, WhatIsNoRequestIsRefused) {
  const std::string good = *encoded(channel::Request{Kind::run, 1, {"/bin/true"}});
  expectRefused("x");
  expectRefused(std::string(12, '\0'));
  expectRefused(good.substr(0, good.size() - 1));
  expectRefused(good.substr(0, 7));
}

TEST_F(HostilePacketTest, AnOversizedPacketIsRefused) {
  std::string packet = *encoded(channel::Request{Kind::run, 1, {"/bin/true"}});
  packet.resize(channel::kMaxMessage + 1, 'x');
  packet.back() = '\0';
  expectRefused(packet);
}

TEST_F(HostilePacketTest, ForeignDescriptorsAreRefused) {
  const std::string good = *encoded(channel::Request{Kind::hello, 1, {}});
  expectRefused(good, {STDERR_FILENO});
  expectRefused(good, {STDERR_FILENO, STDERR_FILENO});
}

TEST_F(HostilePacketTest, OneWhoTakesNoRepliesIsNotWaitedFor) {
  auto answer = channel_.ask(Kind::newChannel, {}, 1);
  ASSERT_EQ(give(::getpid()), 0);
  const std::string hello = *encoded(channel::Request{Kind::hello, 1, {}});
  // More than its queue of replies can hold.
  EXPECT_TRUE(waitFor([&] {
    while (channel::send(answer.descriptors[0].get(), hello)) {
    }
    return errno == EPIPE || errno == ECONNRESET;
  }));
  EXPECT_EQ(channel_.ask(Kind::hello, {}, 0).status, 0);
}

// --- The other end: what comes back is not believed either ---

class HostileElevatorTest : public testing::Test {
 protected:
  int statusAfter(const std::function<void(int)>& misbehave) {
    channel::ChannelPair pair = channel::makeChannel();
    ElevatorChannel channel(std::move(pair.one));
    EXPECT_TRUE(channel.sendHello());
    misbehave(pair.other.get());
    return channel.takeAnswer(0, std::chrono::milliseconds(50)).status;
  }
};

TEST_F(HostileElevatorTest, OnlyTheExpectedAnswerIsBelieved) {
  const std::string good = encoded(channel::Reply{1, 0});
  if (::getuid() == 0) {
    EXPECT_EQ(statusAfter([&](int end) { channel::send(end, good); }), 0);
  }
  EXPECT_EQ(statusAfter([](int) {}), kLost) << "silence";
  EXPECT_EQ(statusAfter([](int end) { ::shutdown(end, SHUT_RDWR); }), kLost);
  EXPECT_EQ(statusAfter([](int end) { channel::send(end, "x"); }), kLost);
  EXPECT_EQ(statusAfter([&](int end) { channel::send(end, good + "x"); }), kLost);
  EXPECT_EQ(statusAfter([](int end) {
              channel::send(end, encoded(channel::Reply{2, 0}));
            }),
            kLost)
      << "the answer to another question";
  EXPECT_EQ(statusAfter([&](int end) { channel::send(end, good, {STDERR_FILENO}); }), kLost)
      << "a descriptor that nobody asked for";
}

TEST_F(HostileElevatorTest, OneWhoIsNotRootIsNotBelieved) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string good = encoded(channel::Reply{1, 0});
  EXPECT_EQ(statusAfter([&](int end) {
              const pid_t pretender = ::fork();
              if (pretender == 0) {
                ::_exit(::setuid(Sandbox::kOtherUserId) == 0 && channel::send(end, good) ? 0 : 1);
              }
              int status = -1;
              ::waitpid(pretender, &status, 0);
              EXPECT_EQ(status, 0);
            }),
            kLost);
}

}  // namespace
