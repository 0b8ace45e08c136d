#include "platform/linux/tasks/Turn.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/Privilege.h"
#include "platform/Task.h"
#include "platform/Workspace.h"
#include "tests/support/ApplicationBundle.h"
#include "tests/support/HeldTool.h"
#include "tests/support/LoopImage.h"
#include "tests/support/Polkit.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

// What waits for the tools that a process has started with rights: as an ordinary user through a
// session, and as the superuser.
namespace {

namespace fs = std::filesystem;
namespace privilege = platform::privilege;
namespace workspace = platform::workspace;
using platform::Task;
using privilege::Outcome;
using privilege::Output;
using privilege::Session;
using test::HeldTool;
using test::LoopImage;
using test::makeApplication;
using test::Polkit;
using test::readFile;
using test::Sandbox;
using test::waitFor;
using testing::HasSubstr;

constexpr char kUser[] = "anna";
constexpr std::chrono::milliseconds kAWhile(300);
constexpr std::chrono::seconds kAtOnce(2);
enum class As { user, superuser };

void PrintTo(As as, std::ostream* out) {
  *out << (as == As::user ? "an ordinary user" : "the superuser");
}

std::shared_ptr<Session> grantedSession() {
  auto session = Session::create().session;
  const Outcome outcome = ::getuid() == 0
                              ? session->askForRights()
                              : session->obtainRights({Polkit::kAdministrator, Polkit::kPassword});
  EXPECT_EQ(outcome, Outcome::granted);
  return session;
}

// Starts a tool that names `path`.
void runOn(Session& session, const std::string& script, const std::string& path) {
  EXPECT_EQ(session.execute("/bin/sh", {"-c", script, "sh", path}, Output::discarded).status, 0);
}

// Kills it from within, as it is the parent of what it runs; that may come before its reply.
void killElevatorOf(Session& session) {
  session.execute("/bin/sh", {"-c", "kill -9 $PPID"}, Output::piped);
  EXPECT_TRUE(waitFor([&] {
    return session.execute("/bin/true", {}, Output::piped).status == privilege::kSessionLost;
  }));
}

void expectAtOnce(const std::function<void()>& body) {
  const auto start = std::chrono::steady_clock::now();
  body();
  EXPECT_LT(std::chrono::steady_clock::now() - start, kAtOnce);
}

class TurnTest : public testing::TestWithParam<As> {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    sandbox_.setConsoleUser(kUser);
    if (GetParam() == As::user) polkit_.emplace(sandbox_);
    bundle_ = application("Sample");
    errors_ = sandbox_.makeFile("errors");
    fs::permissions(errors_, fs::perms(0666));
  }

  std::string application(const std::string& name) const {
    return makeApplication(
        sandbox_, "Apps/" + name + ".app",
        "<key>CFBundleIdentifier</key><string>com.quorvale." + name + "</string>");
  }

  // Plays the helper in a process of its own, whose errors go to a file.
  pid_t start(const std::function<void()>& helper) {
    const auto body = [&] {
      const int file = ::open(errors_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
      ::dup2(file, STDERR_FILENO);
      helper();
    };
    if (GetParam() == As::user) return test::startAs(sandbox_, kUser, body);
    const pid_t child = ::fork();
    if (child != 0) return child;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    body();
    ::_exit(HasFailure() ? 1 : 0);
  }
  void play(const std::function<void()>& helper) { EXPECT_TRUE(test::passed(start(helper))); }

  std::string entry(const std::string& name = "Sample") const {
    const std::string folder =
        GetParam() == As::user ? sandbox_.homeOf(kUser) + "/.local/share" : "/usr/local/share";
    return folder + "/applications/com.quorvale." + name + ".desktop";
  }
  std::string record() const { return sandbox_.homeOf(kUser) + "/opened"; }
  bool isOpened() const { return fs::exists(record()); }
  bool isRegistered() const { return fs::exists(entry()); }
  std::string complaint(const std::string& verb) const {
    return "Unable to " + verb + " " + bundle_ + " because it was not written completely\n";
  }
  std::string errors() const { return readFile(errors_); }

  void expectNothingYet() const {
    EXPECT_FALSE(waitFor([&] { return isRegistered() || isOpened(); }, kAWhile));
  }
  void expectBoth() const {
    EXPECT_TRUE(waitFor([&] { return isOpened(); }));
    EXPECT_TRUE(isRegistered()) << "it is registered before it is opened";
    EXPECT_EQ(errors(), "");
  }

  Sandbox sandbox_;
  std::optional<Polkit> polkit_;
  std::string bundle_;
  std::string errors_;
};

INSTANTIATE_TEST_SUITE_P(, TurnTest, testing::Values(As::user, As::superuser),
                         [](const auto& instance) {
                           return instance.param == As::user ? "AsAUser" : "AsSuperuser";
                         });

void registerAndOpen(const std::string& bundle) {
  expectAtOnce([&] {
    EXPECT_TRUE(workspace::registerApplication(bundle));
    EXPECT_TRUE(workspace::open(bundle));
  });
}

TEST_P(TurnTest, AnApplicationIsRegisteredAndOpenedWhenItIsWholeThoughTheHelperHasEnded) {
  const HeldTool held(sandbox_);
  play([&] {
    const auto session = grantedSession();
    runOn(*session, held.script(), fs::path(bundle_).parent_path());
    registerAndOpen(bundle_);
  });
  expectNothingYet();
  held.release();
  expectBoth();
}

TEST_P(TurnTest, AKilledHelperChangesNothingAboutIt) {
  const HeldTool held(sandbox_);
  const pid_t helper = start([&] {
    const auto session = grantedSession();
    runOn(*session, held.script(), bundle_);
    registerAndOpen(bundle_);
    ::kill(::getpid(), SIGKILL);
  });
  EXPECT_FALSE(test::passed(helper));
  expectNothingYet();
  held.release();
  expectBoth();
}

TEST_P(TurnTest, AnApplicationThatDoesNotExistYetCanBeAwaited) {
  const HeldTool held(sandbox_);
  const std::string hidden = bundle_ + ".part";
  fs::rename(bundle_, hidden);
  play([&] {
    const auto session = grantedSession();
    runOn(*session, held.script() + "mv '" + hidden + "' \"$1\"", bundle_);
    registerAndOpen(bundle_);
  });
  held.release();
  expectBoth();
}

TEST_P(TurnTest, WhenTheWriterFailsNothingIsOpenedAndThatIsSaid) {
  const HeldTool held(sandbox_);
  play([&] {
    const auto session = grantedSession();
    runOn(*session, held.script() + "exit 1", bundle_);
    registerAndOpen(bundle_);
  });
  held.release();
  EXPECT_TRUE(waitFor([&] { return errors() == complaint("register") + complaint("open"); }))
      << errors();
  EXPECT_FALSE(isRegistered() || isOpened());
}

TEST_P(TurnTest, WhenTheWriterHasFailedBeforeNothingIsOpenedEither) {
  play([&] {
    const auto session = grantedSession();
    runOn(*session, "exit 1", bundle_);
    // Its end is certain when the next one on the path has ended.
    const auto next = session->execute("/bin/true", {bundle_}, Output::piped);
    next.output->terminationStatus();
    EXPECT_FALSE(workspace::registerApplication(bundle_));
    EXPECT_FALSE(workspace::open(bundle_));
    EXPECT_FALSE(workspace::openWithApplication(bundle_, bundle_));
  });
  EXPECT_EQ(errors(), complaint("register") + complaint("open") + complaint("open"));
  EXPECT_FALSE(isRegistered() || isOpened());
}

TEST_P(TurnTest, OnlyTheLastWriterCounts) {
  const HeldTool held(sandbox_);
  play([&] {
    const auto session = grantedSession();
    runOn(*session, held.script() + "exit 1", bundle_);
    runOn(*session, "exit 0", bundle_);
    registerAndOpen(bundle_);
  });
  held.release();
  expectBoth();
}

TEST_P(TurnTest, WhenNobodyKnowsHowTheWriterEndedNothingIsOpened) {
  const HeldTool held(sandbox_);
  play([&] {
    auto session = grantedSession();
    runOn(*session, held.script(), bundle_);
    killElevatorOf(*session);
    EXPECT_TRUE(workspace::open(bundle_)) << "that has to wait";
    session.reset();
    EXPECT_TRUE(workspace::open(bundle_)) << "also when the lost session is let go";
  });
  EXPECT_EQ(errors(), "") << "the tool still runs";
  held.release();
  EXPECT_TRUE(waitFor([&] { return errors() == complaint("open") + complaint("open"); }));
  EXPECT_FALSE(isOpened());
}

TEST_P(TurnTest, WhenAToolThatNobodyKnowsOfHasEndedThatIsSaidAtOnce) {
  play([&] {
    auto session = grantedSession();
    runOn(*session, "exit 0", bundle_);
    killElevatorOf(*session);
    EXPECT_TRUE(waitFor([&] { return !workspace::open(bundle_); }));
  });
  EXPECT_THAT(errors(), HasSubstr(complaint("open")));
  EXPECT_FALSE(isOpened());
}

TEST_P(TurnTest, AToolThatWritesAnewWaitsForTheOneOfALostSession) {
  const HeldTool held(sandbox_);
  const std::string trace = sandbox_.path("trace");
  const std::string lost = sandbox_.path("home/anna/lost");
  const pid_t helper = start([&] {
    auto session = grantedSession();
    runOn(*session, held.script() + "echo first >>" + trace, bundle_);
    killElevatorOf(*session);
    session = grantedSession();
    fs::create_directory(lost);
    runOn(*session, "echo second >>" + trace, bundle_);
  });
  EXPECT_TRUE(waitFor([&] { return fs::exists(lost); }));
  EXPECT_FALSE(waitFor([&] { return fs::exists(trace); }, kAWhile));
  held.release();
  EXPECT_TRUE(test::passed(helper));
  EXPECT_TRUE(waitFor([&] { return readFile(trace) == "first\nsecond\n"; })) << readFile(trace);
}

TEST_P(TurnTest, ALostSessionHoldsNothingBackThatItDidNotWrite) {
  const std::string other = application("Other");
  play([&] {
    auto session = grantedSession();
    runOn(*session, "exit 0", other);
    killElevatorOf(*session);
    EXPECT_TRUE(workspace::registerApplication(bundle_));
    session.reset();
    EXPECT_TRUE(workspace::open(bundle_));
  });
  expectBoth();
}

TEST_P(TurnTest, WhatALostSessionWroteCanBeWrittenAnew) {
  play([&] {
    auto session = grantedSession();
    runOn(*session, "exit 0", bundle_);
    killElevatorOf(*session);
    session = grantedSession();
    runOn(*session, "exit 0", bundle_);
    registerAndOpen(bundle_);
  });
  expectBoth();
}

TEST_P(TurnTest, WhatIsWrittenElsewhereDelaysNothing) {
  const HeldTool held(sandbox_);
  const std::string other = application("Other");
  play([&] {
    const auto session = grantedSession();
    runOn(*session, held.script(), other);
    EXPECT_TRUE(workspace::registerApplication(other));
    EXPECT_TRUE(workspace::registerApplication(bundle_));
    EXPECT_TRUE(isRegistered());
    EXPECT_TRUE(workspace::open(bundle_));
    EXPECT_TRUE(waitFor([&] { return isOpened(); }));
    EXPECT_FALSE(fs::exists(entry("Other")));
  });
  held.release();
  EXPECT_TRUE(waitFor([&] { return fs::exists(entry("Other")); }));
}

TEST_P(TurnTest, AFileIsGivenToAnApplicationThatIsStillWritten) {
  const HeldTool held(sandbox_);
  const std::string file = sandbox_.makeFile("file.txt");
  play([&] {
    const auto session = grantedSession();
    runOn(*session, held.script(), bundle_);
    expectAtOnce([&] { EXPECT_TRUE(workspace::openWithApplication(file, bundle_)); });
  });
  expectNothingYet();
  held.release();
  EXPECT_TRUE(waitFor([&] { return isOpened(); }));
  EXPECT_THAT(readFile(record()), HasSubstr("argument " + file + "\n"));
}

TEST_P(TurnTest, TheAwaitedApplicationGetsNoDescriptorOfTheFollowups) {
  const HeldTool held(sandbox_);
  play([&] {
    const auto session = grantedSession();
    runOn(*session, held.script(), bundle_);
    registerAndOpen(bundle_);
  });
  held.release();
  EXPECT_TRUE(waitFor([&] { return isOpened(); }));
  EXPECT_THAT(readFile(record()), testing::Not(HasSubstr("\ndescriptor 3")));
}

// --- Detaching ---

std::shared_ptr<Task> startedDetach(const std::string& mountPoint) {
  auto task = Task::create();
  task->setLaunchPath("/usr/bin/hdiutil");
  task->setArguments({"detach", mountPoint, "-force"});
  task->setStandardOutput(Task::End::nullDevice);
  task->launch();
  return task;
}

using DetachTurnTest = TurnTest;
INSTANTIATE_TEST_SUITE_P(, DetachTurnTest, testing::Values(As::superuser),
                         [](const auto&) { return "AsSuperuser"; });

TEST_P(DetachTurnTest, AnImageIsDetachedWhenNoToolReadsFromItAnyMore) {
  const HeldTool held(sandbox_);
  const LoopImage image(sandbox_, "Volumes/Image");
  const auto session = grantedSession();
  runOn(*session, held.script(), image.mountPoint() + "/Sample.app");
  const auto task = startedDetach(image.mountPoint());
  EXPECT_FALSE(waitFor([&] { return !task->isRunning() || !image.isMounted(); }, kAWhile));
  held.release();
  task->waitUntilExit();
  EXPECT_EQ(task->terminationStatus(), 0);
  EXPECT_FALSE(image.isMounted());
}

TEST_P(DetachTurnTest, WhenTheElevatorDiesNoImageIsDetachedUnderATool) {
  const HeldTool held(sandbox_);
  const LoopImage image(sandbox_, "Volumes/Image");
  // More than the time after which a busy image is taken out of the tree.
  constexpr std::chrono::seconds kLong(6);
  auto session = grantedSession();
  runOn(*session, "exec 9<" + image.mountPoint() + "/lost+found; " + held.script(),
        image.mountPoint() + "/Sample.app");
  const auto waiting = startedDetach(image.mountPoint());
  killElevatorOf(*session);
  const auto task = startedDetach(image.mountPoint());
  EXPECT_FALSE(waitFor([&] { return !image.isMounted(); }, kLong));
  held.release();
  waiting->waitUntilExit();
  task->waitUntilExit();
  EXPECT_TRUE(waitFor([&] { return !image.isMounted(); }));
}

TEST_P(DetachTurnTest, WhenTheCallerGivesUpTheImageIsDetachedAllTheSame) {
  const HeldTool held(sandbox_);
  const LoopImage image(sandbox_, "Volumes/Image");
  play([&] {
    const auto session = grantedSession();
    runOn(*session, held.script() + "exit 1", image.mountPoint() + "/Sample.app");
    const auto task = startedDetach(image.mountPoint());
    EXPECT_FALSE(waitFor([&] { return !task->isRunning(); }, kAWhile));
    task->terminate();
    task->waitUntilExit();
    EXPECT_EQ(task->terminationStatus(), SIGTERM);
  });
  EXPECT_FALSE(waitFor([&] { return !image.isMounted(); }, kAWhile));
  held.release();
  EXPECT_TRUE(waitFor([&] { return !image.isMounted(); })) << "also after a tool that failed";
}

}  // namespace
