#include "platform/Privilege.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "channel/Messages.h"
#include "channel/Packet.h"
#include "tests/support/ChildProgram.h"
#include "tests/support/Polkit.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

namespace fs = std::filesystem;
namespace privilege = platform::privilege;
using platform::privilege::Outcome;
using platform::privilege::Output;
using platform::privilege::Session;
using test::passed;
using test::passesAs;
using test::Polkit;
using test::Sandbox;
using test::startAs;
using test::waitFor;

constexpr char kUser[] = "anna";

std::string readAll(privilege::ToolOutput& output) {
  std::string text;
  std::array<std::byte, 256> buffer{};
  for (std::size_t size = 0; (size = output.read(buffer)) > 0;) {
    text.append(reinterpret_cast<const char*>(buffer.data()), size);
  }
  return text;
}

std::string idOfToolIn(Session& session) {
  const auto execution = session.execute("/usr/bin/id", {"-u"}, Output::piped);
  return execution.output == nullptr ? "" : readAll(*execution.output);
}

Outcome tryPassword(const std::string& user, const std::string& password) {
  return Session::create().session->obtainRights({user, password});
}

Outcome tryDialog() {
  return Session::create().session->askForRights();
}

std::shared_ptr<Session> sessionWithPassword() {
  auto session = Session::create().session;
  EXPECT_EQ(session->obtainRights({Polkit::kAdministrator, Polkit::kPassword}), Outcome::granted);
  return session;
}

// The person at the desktop, for this process.
class Person {
 public:
  explicit Person(std::vector<std::string> behaviour) : agent_(command(std::move(behaviour))) {
    EXPECT_TRUE(agent_.waitForLine("ready"));
  }

  bool wasAsked() { return agent_.waitForLine("asked com.quorvale.UpdateHelper.elevate"); }

 private:
  static std::vector<std::string> command(std::vector<std::string> behaviour) {
    std::vector<std::string> words = {std::string(QV_TEST_PROGRAMS) + "/PolkitAgent",
                                      std::to_string(::getpid())};
    words.insert(words.end(), behaviour.begin(), behaviour.end());
    return words;
  }

  test::ChildProgram agent_;
};

// The seconds that `body` takes.
double secondsOf(const std::function<void()>& body) {
  const auto start = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The elevator of this machine, which is this process's mount namespace.
std::optional<pid_t> elevatorOfMachine() {
  const fs::path machine = fs::read_symlink("/proc/self/ns/mnt");
  for (const auto& entry : fs::directory_iterator("/proc")) {
    std::error_code gone;
    if (fs::read_symlink(entry.path() / "exe", gone) == QV_TEST_ELEVATOR_PATH &&
        fs::read_symlink(entry.path() / "ns/mnt", gone) == machine) {
      return std::atoi(entry.path().filename().c_str());
    }
  }
  return std::nullopt;
}

bool elevatorRuns() {
  return elevatorOfMachine().has_value();
}

// Kills it if there is one: no process has the number 0, which is that of all in the caller's
// group.
void killElevator() {
  if (const std::optional<pid_t> elevator = elevatorOfMachine()) ::kill(*elevator, SIGKILL);
}

// A machine with a system bus, an authority, an administrator and an installed elevator.
class PrivilegeTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
  }

  void TearDown() override {
    EXPECT_TRUE(waitFor([] { return !elevatorRuns(); }));
  }

  void asUser(const std::function<void()>& body) { EXPECT_TRUE(passesAs(sandbox_, kUser, body)); }

  Sandbox sandbox_;
};

// --- A name and a password ---

TEST_F(PrivilegeTest, ANameAndAPasswordStartASessionThatRunsToolsAsTheSuperuser) {
  const Polkit polkit(sandbox_);
  asUser([] {
    const auto session = sessionWithPassword();
    const auto execution = session->execute("/usr/bin/id", {"-u"}, Output::piped);
    ASSERT_EQ(execution.status, 0);
    EXPECT_EQ(readAll(*execution.output), "0\n");
    EXPECT_EQ(execution.output->terminationStatus(), 0);
    EXPECT_EQ(execution.output->terminationStatus(), 0) << "it is remembered";
  });
}

TEST_F(PrivilegeTest, WrongAndEmptyPasswordsAreRefusedInTimeAndTheNextTryWorks) {
  const Polkit polkit(sandbox_);
  asUser([] {
    for (const char* password : {"wrong", ""}) {
      EXPECT_LT(secondsOf([&] {
                  EXPECT_EQ(tryPassword(Polkit::kAdministrator, password), Outcome::refused);
                }),
                10);
    }
    EXPECT_EQ(idOfToolIn(*sessionWithPassword()), "0\n");
  });
}

TEST_F(PrivilegeTest, OneWhoIsNoAdministratorIsRefusedInTime) {
  const Polkit polkit(sandbox_);
  asUser([] {
    EXPECT_LT(secondsOf([] {
                EXPECT_EQ(tryPassword(kUser, Polkit::kPassword), Outcome::refused);
                EXPECT_EQ(tryPassword("nobody-of-that-name", "x"), Outcome::refused);
                EXPECT_EQ(tryPassword("", ""), Outcome::refused);
                EXPECT_EQ(tryPassword("root", "x"), Outcome::refused);
              }),
              15);
    EXPECT_EQ(idOfToolIn(*sessionWithPassword()), "0\n");
  });
}

TEST_F(PrivilegeTest, WhatCannotBeANameOrAPasswordIsNotTried) {
  const Polkit polkit(sandbox_);
  asUser([] {
    EXPECT_EQ(tryPassword(std::string(10000, 'x'), "x"), Outcome::unavailable);
    EXPECT_EQ(tryPassword("bert", std::string("correct horse\0x", 15)), Outcome::unavailable);
  });
}

TEST_F(PrivilegeTest, AMachineWithoutAnAdministratorRefuses) {
  const Polkit polkit(sandbox_, Polkit::Without::administrator);
  asUser(
      [] { EXPECT_EQ(tryPassword(Polkit::kAdministrator, Polkit::kPassword), Outcome::refused); });
}

TEST_F(PrivilegeTest, APasswordAnswersForOneSessionAlone) {
  const Polkit polkit(sandbox_);
  asUser([] {
    const auto session = sessionWithPassword();
    EXPECT_EQ(tryDialog(), Outcome::refused) << "nobody is left to ask";
  });
}

// A program that is an orphan by now has another parent, for whom nobody gave it a password.
TEST_F(PrivilegeTest, APasswordAnswersForNobodyButTheProcessThatHandedItOver) {
  const Polkit polkit(sandbox_);
  asUser([] {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const fs::path program =
        fs::read_symlink("/proc/self/exe").replace_filename("authentication-agent");
    const pid_t otherParent = ::fork();
    if (otherParent == 0) {
      ::close(ends[0]);
      const pid_t authenticator = ::fork();
      if (authenticator == 0) {
        ::dup2(ends[1], STDIN_FILENO);
        ::execl(program.c_str(), program.c_str(), nullptr);
        ::_exit(127);
      }
      ::close(ends[1]);
      int status = -1;
      ::waitpid(authenticator, &status, 0);
      ::_exit(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_FAILURE ? 0 : 1);
    }
    ::close(ends[1]);
    const std::string credentials = std::string("bert") + '\0' + Polkit::kPassword + '\0';
    EXPECT_EQ(::send(ends[0], credentials.data(), credentials.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(credentials.size()));
    char word = 0;
    EXPECT_EQ(::recv(ends[0], &word, 1, 0), 0) << "it is not ready to answer";
    ::close(ends[0]);
    EXPECT_TRUE(passed(otherParent));
  });
}

// --- The dialog ---

TEST_F(PrivilegeTest, ThePersonIsAskedOnceForTheLifeOfTheSession) {
  const Polkit polkit(sandbox_);
  asUser([] {
    auto session = Session::create().session;
    {
      Person person({"answer", Polkit::kPassword});
      EXPECT_EQ(session->askForRights(), Outcome::granted);
      EXPECT_TRUE(person.wasAsked());
    }
    EXPECT_EQ(idOfToolIn(*session), "0\n");
    EXPECT_EQ(idOfToolIn(*session), "0\n");
  });
}

TEST_F(PrivilegeTest, ADismissedDialogIsACancelAndTheNextTryWorks) {
  const Polkit polkit(sandbox_);
  asUser([] {
    {
      Person person({"dismiss"});
      EXPECT_EQ(tryDialog(), Outcome::cancelled);
      EXPECT_TRUE(person.wasAsked());
    }
    EXPECT_EQ(idOfToolIn(*sessionWithPassword()), "0\n");
  });
}

TEST_F(PrivilegeTest, AnAgentThatDiesInTheMiddleIsARefusalAndTheNextTryWorks) {
  const Polkit polkit(sandbox_);
  asUser([] {
    {
      Person person({"die"});
      EXPECT_LT(secondsOf([] { EXPECT_NE(tryDialog(), Outcome::granted); }), 5);
      EXPECT_TRUE(person.wasAsked());
    }
    EXPECT_EQ(idOfToolIn(*sessionWithPassword()), "0\n");
  });
}

TEST_F(PrivilegeTest, WithoutAnAgentThereIsNobodyToAsk) {
  const Polkit polkit(sandbox_);
  asUser([] {
    EXPECT_LT(secondsOf([] { EXPECT_EQ(tryDialog(), Outcome::refused); }), 5);
    EXPECT_EQ(idOfToolIn(*sessionWithPassword()), "0\n");
  });
}

// --- What can be missing ---

void expectUnavailable() {
  EXPECT_LT(secondsOf([] {
              EXPECT_EQ(tryPassword(Polkit::kAdministrator, Polkit::kPassword),
                        Outcome::unavailable);
              EXPECT_EQ(tryDialog(), Outcome::unavailable);
            }),
            5);
}

TEST_F(PrivilegeTest, WithoutABusNothingCanBeGranted) {
  const Polkit polkit(sandbox_, Polkit::Without::bus);
  asUser(expectUnavailable);
}

// A process of the user's that finds nothing to grant it rights, and tries again after `mend`.
bool triesAgainAfter(Sandbox& sandbox, const std::function<void()>& mend) {
  const pid_t user = startAs(sandbox, kUser, [] {
    expectUnavailable();
    ::raise(SIGSTOP);
    EXPECT_EQ(idOfToolIn(*sessionWithPassword()), "0\n");
    Person person({"answer", Polkit::kPassword});
    EXPECT_EQ(tryDialog(), Outcome::granted);
  });
  int status = 0;
  EXPECT_EQ(::waitpid(user, &status, WUNTRACED), user);
  EXPECT_TRUE(WIFSTOPPED(status));
  mend();
  ::kill(user, SIGCONT);
  return passed(user);
}

TEST_F(PrivilegeTest, OnceTheBusIsThereAgainTheNextTryOfTheSameProcessWorks) {
  constexpr char kBus[] = "/run/dbus/system_bus_socket";
  constexpr char kElsewhere[] = "/run/dbus/elsewhere";
  const Polkit polkit(sandbox_);
  fs::rename(kBus, kElsewhere);
  EXPECT_TRUE(triesAgainAfter(sandbox_, [&] { fs::rename(kElsewhere, kBus); }));
}

TEST_F(PrivilegeTest, WithoutAnAuthorityNothingCanBeGranted) {
  const Polkit polkit(sandbox_, Polkit::Without::authority);
  asUser(expectUnavailable);
}

TEST_F(PrivilegeTest, OnceThereIsAnAuthorityTheNextTryOfTheSameProcessWorks) {
  Polkit polkit(sandbox_, Polkit::Without::authority);
  EXPECT_TRUE(triesAgainAfter(sandbox_, [&] { polkit.installAuthority(); }));
}

TEST_F(PrivilegeTest, WithoutTheElevatorNothingCanBeGranted) {
  const Polkit polkit(sandbox_, Polkit::Without::elevator);
  asUser(expectUnavailable);
}

TEST_F(PrivilegeTest, AProcessThatMayGainNoPrivilegesGainsNone) {
  const Polkit polkit(sandbox_);
  asUser([] {
    ASSERT_EQ(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    EXPECT_LT(secondsOf([] {
                EXPECT_EQ(tryPassword(Polkit::kAdministrator, Polkit::kPassword), Outcome::refused);
                EXPECT_EQ(tryDialog(), Outcome::refused);
              }),
              5);
  });
}

// Takes the whole bound of five seconds for an authority that does not answer.
TEST_F(PrivilegeTest, AnAuthorityThatHangsIsGivenUpAndTheNextTryWorks) {
  const Polkit polkit(sandbox_);
  polkit.hang();
  asUser([] { EXPECT_LT(secondsOf([] { EXPECT_EQ(tryDialog(), Outcome::unavailable); }), 8); });
  polkit.goOn();
  asUser([] { EXPECT_EQ(idOfToolIn(*sessionWithPassword()), "0\n"); });
}

// --- The session's life ---

TEST_F(PrivilegeTest, ASessionWithoutRightsRunsNothing) {
  asUser([] {
    EXPECT_EQ(Session::create().session->execute("/bin/true", {}, Output::discarded).status,
              privilege::kSessionLost);
  });
}

TEST_F(PrivilegeTest, AnEndedSessionRunsNothingAndLeavesNothing) {
  const Polkit polkit(sandbox_);
  asUser([] {
    // What the first session leaves open is not made again by the second.
    sessionWithPassword()->end();
    EXPECT_TRUE(waitFor([] { return test::children() == 0; }));
    const std::size_t before = test::openDescriptors();
    const auto session = sessionWithPassword();
    session->end();
    session->end();
    EXPECT_EQ(session->execute("/bin/true", {}, Output::discarded).status, privilege::kSessionLost);
    EXPECT_TRUE(waitFor([] { return test::children() == 0; }));
    EXPECT_TRUE(waitFor([&] { return test::openDescriptors() == before; }));
  });
}

TEST_F(PrivilegeTest, ManyThreadsShareOneSession) {
  const Polkit polkit(sandbox_);
  asUser([] {
    const auto session = sessionWithPassword();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&session] {
        for (int run = 0; run < 5; ++run) EXPECT_EQ(idOfToolIn(*session), "0\n");
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
}

TEST_F(PrivilegeTest, TheElevatorsEndIsNoticed) {
  const Polkit polkit(sandbox_);
  const std::string started = sandbox_.homeOf(kUser) + "/started";
  const pid_t child = startAs(sandbox_, kUser, [&started] {
    const auto session = sessionWithPassword();
    fs::create_directory(started);
    EXPECT_TRUE(waitFor([&] {
      return session->execute("/bin/true", {}, Output::discarded).status == privilege::kSessionLost;
    }));
    EXPECT_EQ(idOfToolIn(*sessionWithPassword()), "0\n");
  });
  EXPECT_TRUE(waitFor([&] { return fs::exists(started); }));
  killElevator();
  EXPECT_TRUE(passed(child));
}

TEST_F(PrivilegeTest, ArgumentsArriveAsTheyAre) {
  const Polkit polkit(sandbox_);
  asUser([] {
    const auto session = sessionWithPassword();
    const std::vector<std::string> words = {
        "-c", "printf '<%s>' \"$@\"", "sh", "", "a b", "$(id)", "\xc3\xa4\xff", "-x", "new\nline"};
    const auto execution = session->execute("/bin/sh", words, Output::piped);
    ASSERT_EQ(execution.status, 0);
    EXPECT_EQ(readAll(*execution.output), "<><a b><$(id)><\xc3\xa4\xff><-x><new\nline>");
    EXPECT_EQ(session->execute("/bin/sh", {std::string(200000, 'x')}, Output::discarded).status,
              E2BIG);
    EXPECT_EQ(session->execute("/bin/sh", {std::string("a\0b", 3)}, Output::discarded).status,
              EINVAL);
    EXPECT_EQ(session->execute("bin/sh", {}, Output::discarded).status, EINVAL);
    EXPECT_EQ(idOfToolIn(*session), "0\n");
  });
}

// --- Other processes of the same user ---

TEST_F(PrivilegeTest, AProtectedProcessCannotBeReadByOthersOfItsUser) {
  const Polkit polkit(sandbox_);
  asUser([] {
    // What has given up root, as this process has, would be protected by that alone.
    ASSERT_EQ(::prctl(PR_SET_DUMPABLE, 1), 0);
    privilege::protectProcess();
    const auto session = sessionWithPassword();
    const pid_t self = ::getpid();
    const pid_t thief = ::fork();
    if (thief == 0) {
      const bool traced = ::ptrace(PTRACE_ATTACH, self, nullptr, nullptr) == 0;
      // It stands still then, and would for ever.
      if (traced) ::kill(self, SIGKILL);
      const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, self, 0));
      bool stolen = false;
      for (int number = 3; number < 64; ++number) {
        stolen = stolen || ::syscall(SYS_pidfd_getfd, pidfd, number, 0) >= 0;
      }
      std::error_code refused;
      fs::directory_iterator("/proc/" + std::to_string(self) + "/fd", refused);
      const std::string memory = "/proc/" + std::to_string(self) + "/mem";
      const bool read = ::open(memory.c_str(), O_RDONLY | O_CLOEXEC) >= 0;
      ::_exit(pidfd >= 0 && !traced && !stolen && refused && !read ? 0 : 1);
    }
    EXPECT_TRUE(passed(thief));
    EXPECT_EQ(idOfToolIn(*session), "0\n") << "and the session works";
  });
}

TEST_F(PrivilegeTest, AChildThatWasForkedCannotUseTheChannel) {
  const Polkit polkit(sandbox_);
  asUser([] {
    const auto session = sessionWithPassword();
    const pid_t child = ::fork();
    if (child == 0) {
      ::_exit(session->execute("/bin/true", {}, Output::discarded).status == privilege::kSessionLost
                  ? 0
                  : 1);
    }
    EXPECT_TRUE(passed(child));
  });
}

// --- A session that a parent handed down ---

// Makes a channel known to this process as a parent would.
void handDown(int channel) {
  ::setenv(channel::kChannelVariable, std::to_string(channel).c_str(), 1);
}

TEST_F(PrivilegeTest, WithoutAHandedDownSessionThereIsNone) {
  EXPECT_EQ(Session::inherited(), nullptr);
}

TEST_F(PrivilegeTest, WhatIsNoChannelIsNotTouched) {
  for (const char* value : {"", "x", "-1", "1x", "99999999999", "200"}) {
    ::setenv(channel::kChannelVariable, value, 1);
    const pid_t child = ::fork();
    if (child == 0) ::_exit(Session::inherited() == nullptr ? 0 : 1);
    EXPECT_TRUE(passed(child)) << value;
  }
  const int file = ::open("/dev/null", O_RDONLY);
  handDown(file);
  EXPECT_EQ(Session::inherited(), nullptr);
  EXPECT_GE(::fcntl(file, F_GETFD), 0) << "it is somebody else's";
  EXPECT_EQ(std::getenv(channel::kChannelVariable), nullptr);
}

TEST_F(PrivilegeTest, APretenderWhoIsNotRootHandsNothingDown) {
  channel::ChannelPair pair = channel::makeChannel();
  const pid_t pretender = startAs(sandbox_, kUser, [&pair] {
    EXPECT_TRUE(channel::waitReadable(pair.other.get(), std::chrono::seconds(10)));
    const auto packet = channel::receive(pair.other.get(), 0);
    const auto request = channel::parseRequest(packet.bytes);
    ASSERT_TRUE(request);
    EXPECT_TRUE(channel::send(pair.other.get(), encoded(channel::Reply{request->id, 0})));
  });
  handDown(pair.one.get());
  EXPECT_EQ(Session::inherited(), nullptr);
  EXPECT_TRUE(passed(pretender));
}

TEST_F(PrivilegeTest, AParentThatDoesNotAnswerCostsTenSeconds) {
  const channel::ChannelPair pair = channel::makeChannel();
  handDown(pair.one.get());
  const auto seconds = secondsOf([] { EXPECT_EQ(Session::inherited(), nullptr); });
  EXPECT_GE(seconds, 9);
  EXPECT_LT(seconds, 12);
}

// The child is this program again: PrivilegeTestChild below plays the helper.
int runChild(Session& session, const std::string& test) {
  return session.runInheriting("/proc/self/exe",
                               {"--gtest_also_run_disabled_tests", "--gtest_filter=" + test});
}

TEST(PrivilegeTestChild, DISABLED_UsesTheInheritedSession) {
  privilege::protectProcess();
  EXPECT_EQ(std::getenv(channel::kChannelVariable), nullptr);
  EXPECT_EQ(fs::read_symlink("/proc/self/fd/0"), "/dev/null");
  // No program that is started now has the channel.
  EXPECT_EQ(std::system("[ $(ls /proc/self/fd | wc -l) -eq 4 ] && [ -z \"$QV_ELEVATOR_CHANNEL\" ]"),
            0);
  const auto session = Session::inherited();
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(idOfToolIn(*session), "0\n");
  EXPECT_EQ(Session::inherited(), nullptr) << "it is answered once";
}

TEST(PrivilegeTestChild, DISABLED_IsKilledWhileAToolRuns) {
  const auto session = Session::inherited();
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session
                ->execute("/bin/sh", {"-c", "sleep 0.2; mkdir \"$0\"", std::getenv("DONE")},
                          Output::discarded)
                .status,
            0);
  ::kill(::getpid(), SIGKILL);
}

constexpr char kUses[] = "PrivilegeTestChild.DISABLED_UsesTheInheritedSession";

TEST_F(PrivilegeTest, AChildUsesTheSessionThatItsParentHandsDown) {
  const Polkit polkit(sandbox_);
  asUser([] {
    privilege::protectProcess();
    const auto session = sessionWithPassword();
    EXPECT_EQ(runChild(*session, kUses), 0);
    EXPECT_EQ(runChild(*session, kUses), 0) << "each has a channel of its own";
    EXPECT_EQ(idOfToolIn(*session), "0\n") << "and so has the parent";
  });
}

TEST_F(PrivilegeTest, ASuperuserHandsASessionDownToAChildOfAUser) {
  const Polkit polkit(sandbox_, Polkit::Without::bus);
  const auto session = Session::create().session;
  ASSERT_EQ(session->askForRights(), Outcome::granted);
  EXPECT_EQ(
      session->runInheriting(
          "/usr/bin/setpriv",
          {"--reuid=61001", "--regid=61001", "--clear-groups", fs::read_symlink("/proc/self/exe"),
           "--gtest_also_run_disabled_tests", std::string("--gtest_filter=") + kUses}),
      0);
}

TEST_F(PrivilegeTest, AKilledChildTakesNeitherTheSessionNorItsToolWithIt) {
  const Polkit polkit(sandbox_);
  const std::string done = sandbox_.path("done");
  ::setenv("DONE", done.c_str(), 1);
  asUser([&done] {
    const auto session = sessionWithPassword();
    EXPECT_EQ(runChild(*session, "PrivilegeTestChild.DISABLED_IsKilledWhileAToolRuns"), SIGKILL);
    EXPECT_TRUE(waitFor([&] { return fs::exists(done); }));
    EXPECT_EQ(idOfToolIn(*session), "0\n");
  });
}

TEST_F(PrivilegeTest, WithoutRightsNothingIsHandedDown) {
  EXPECT_EQ(Session::create().session->runInheriting("/bin/true", {}), -1);
}

// --- Death at any moment ---

// How often CI kills each side; QV_KILLS says another number.
int kills() {
  const char* number = std::getenv("QV_KILLS");
  return number != nullptr ? std::atoi(number) : 10;
}

TEST_F(PrivilegeTest, TheHelpersDeathAtAnyMomentLeavesNothingBehind) {
  const Polkit polkit(sandbox_);
  std::mt19937 random(20261120);
  for (int i = 0; i < kills(); ++i) {
    const pid_t helper = startAs(sandbox_, kUser, [] {
      const auto session = sessionWithPassword();
      while (true) session->execute("/bin/true", {}, Output::discarded);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 120));
    ::kill(helper, SIGKILL);
    EXPECT_FALSE(passed(helper));
    EXPECT_TRUE(waitFor([] { return !elevatorRuns(); })) << i;
  }
}

TEST_F(PrivilegeTest, TheElevatorsDeathAtAnyMomentHangsNobody) {
  const Polkit polkit(sandbox_);
  std::mt19937 random(20261121);
  const std::string started = sandbox_.homeOf(kUser) + "/started";
  for (int i = 0; i < kills(); ++i) {
    const pid_t helper = startAs(sandbox_, kUser, [&started] {
      const auto session = sessionWithPassword();
      fs::create_directory(started);
      privilege::Execution execution;
      while ((execution = session->execute("/bin/true", {}, Output::piped)).status == 0) {
        readAll(*execution.output);
      }
      EXPECT_EQ(execution.status, privilege::kSessionLost);
    });
    EXPECT_TRUE(waitFor([&] { return fs::exists(started); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 30));
    killElevator();
    EXPECT_TRUE(passed(helper)) << i;
    fs::remove(started);
  }
}

}  // namespace
