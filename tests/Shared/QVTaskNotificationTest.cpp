#include "Shared/QVTaskNotification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>

#include "Shared/QVLog.h"
#include "tests/support/CallbackHost.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SessionBus.h"

namespace {

using std::chrono::milliseconds;
using test::CallbackHost;
using test::Sandbox;
using test::SessionBus;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

constexpr char kFirst[] = "QVProClientCallback";
constexpr char kSecond[] = "QVVELMClientCallback";
constexpr milliseconds kPause{15};
// What a host may cost at most, see QVTaskNotification, and some room for a busy machine.
constexpr milliseconds kBound{3500};

const QVTaskError kError = {"com.quorvale.install", -36, "It did not work."};

std::chrono::nanoseconds timeOf(void (*post)()) {
  const auto start = std::chrono::steady_clock::now();
  post();
  return std::chrono::steady_clock::now() - start;
}

// Every post once, in the order in which the header declares them.
void postEverything() {
  QVTaskNotification::postIncrementProgress();
  QVTaskNotification::postTaskFinished();
  QVTaskNotification::postTaskError(kError);
  QVTaskNotification::postTaskErrorString("No room");
  QVTaskNotification::postDisconnect();
}

// What `work` prints on standard output, where every report of an exception goes too.
template <class Work>
std::string printed(Work work) {
  testing::internal::CaptureStdout();
  work();
  QVLog::finishWriting();
  return testing::internal::GetCapturedStdout();
}

// As an ordinary user with a session bus.
class QVTaskNotificationTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    sandbox_.becomeUser(Sandbox::kConsoleUser);
    bus_ = std::make_unique<SessionBus>(sandbox_);
    bus_->announce();
  }

  Sandbox sandbox_;
  std::unique_ptr<SessionBus> bus_;
};

std::vector<std::string> everythingAnswered(const std::string& name) {
  return {"--name",    name,
          "--answers", "incrementRemoteProgress",
          "--answers", "postFinishedTask",
          "--answers", "postError",
          "--answers", "postErrorString",
          "--answers", "postDisconnect"};
}

std::vector<std::string> withRicherOnes(std::vector<std::string> options) {
  for (const char* option :
       {"--answers", "postErrorForApp", "--answers", "postErrorStringUserInfo"}) {
    options.emplace_back(option);
  }
  return options;
}

TEST_F(QVTaskNotificationTest, WithoutAHostAPostWritesNothingAndMakesNoPause) {
  std::chrono::nanoseconds shortest = std::chrono::hours(1);
  EXPECT_EQ(printed([&] {
              postEverything();
              for (int i = 0; i < 20; ++i) {
                shortest = std::min(shortest, timeOf(QVTaskNotification::postIncrementProgress));
              }
            }),
            "");
  EXPECT_LT(shortest, kPause);
}

TEST_F(QVTaskNotificationTest, WithoutABusAPostWritesNothing) {
  bus_.reset();
  EXPECT_EQ(printed(postEverything), "");
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  EXPECT_EQ(printed(postEverything), "");
}

TEST_F(QVTaskNotificationTest, APlainHostReceivesThePlainMessages) {
  CallbackHost host(everythingAnswered(kFirst));
  EXPECT_EQ(printed(postEverything), "");
  EXPECT_THAT(host.waitForMessages(5),
              ElementsAre("incrementRemoteProgress", "postFinishedTask",
                          "postError {code=x:-36, description=s:It did not work., "
                          "domain=s:com.quorvale.install}",
                          "postErrorString No room", "postDisconnect"));
}

TEST_F(QVTaskNotificationTest, AHostOfTheSecondNameIsReached) {
  CallbackHost host(everythingAnswered(kSecond));
  QVTaskNotification::postIncrementProgress();
  EXPECT_THAT(host.waitForMessages(1), ElementsAre("incrementRemoteProgress"));
}

TEST_F(QVTaskNotificationTest, OfTwoHostsOnlyTheOneOfTheFirstNameIsTold) {
  CallbackHost second(everythingAnswered(kSecond));
  CallbackHost first(everythingAnswered(kFirst));
  QVTaskNotification::postTaskFinished();
  EXPECT_THAT(first.waitForMessages(1), ElementsAre("postFinishedTask"));
  EXPECT_THAT(second.messages(), IsEmpty());
  EXPECT_EQ(second.timesAsked(), 0U);
}

TEST_F(QVTaskNotificationTest, AHostOfBothNamesIsToldOnce) {
  std::vector<std::string> options = everythingAnswered(kFirst);
  options.insert(options.end(), {"--name", kSecond});
  CallbackHost host(options);
  QVTaskNotification::postIncrementProgress();
  QVTaskNotification::postTaskFinished();
  EXPECT_THAT(host.waitForMessages(2), ElementsAre("incrementRemoteProgress", "postFinishedTask"));
}

TEST_F(QVTaskNotificationTest, TheSecondNameIsNotTriedWhenTheFirstAnswersNothing) {
  CallbackHost first({"--name", kFirst});
  CallbackHost second(everythingAnswered(kSecond));
  QVTaskNotification::postIncrementProgress();
  QVTaskNotification::postTaskError(kError);
  EXPECT_THAT(first.messages(), IsEmpty());
  EXPECT_THAT(second.messages(), IsEmpty());
}

TEST_F(QVTaskNotificationTest, TheRicherMessageWinsWhereBothAreAnswered) {
  CallbackHost host(withRicherOnes(everythingAnswered(kFirst)));
  QVTaskNotification::postTaskError(kError);
  QVTaskNotification::postTaskErrorString("No room");
  EXPECT_THAT(host.waitForMessages(2),
              ElementsAre("postErrorForApp {code=x:-36, description=s:It did not work., "
                          "domain=s:com.quorvale.install} QVTaskNotificationTest",
                          "postErrorStringUserInfo No room {appName=s:QVTaskNotificationTest}"));
}

TEST_F(QVTaskNotificationTest, AHostOfOnlyTheRicherMessagesReceivesThoseAndNoOthers) {
  CallbackHost host(withRicherOnes({"--name", kFirst}));
  postEverything();
  EXPECT_THAT(host.waitForMessages(2),
              ElementsAre(StartsWith("postErrorForApp"), StartsWith("postErrorStringUserInfo")));
}

TEST_F(QVTaskNotificationTest, AHostOfOnlyPostErrorReceivesTheErrorWithoutTheName) {
  CallbackHost host({"--name", kFirst, "--answers", "postError"});
  postEverything();
  EXPECT_THAT(host.waitForMessages(1),
              ElementsAre("postError {code=x:-36, description=s:It did not work., "
                          "domain=s:com.quorvale.install}"));
}

TEST_F(QVTaskNotificationTest, ThePauseIsMadeWheneverAHostWasFound) {
  CallbackHost host({"--name", kFirst, "--answers", "incrementRemoteProgress"});
  for (const auto post :
       {QVTaskNotification::postIncrementProgress, QVTaskNotification::postTaskFinished}) {
    std::chrono::nanoseconds shortest = std::chrono::hours(1);
    for (int i = 0; i < 10; ++i) shortest = std::min(shortest, timeOf(post));
    EXPECT_GE(shortest, kPause);
    EXPECT_LT(shortest, 3 * kPause);
  }
  EXPECT_THAT(host.waitForMessages(10), Each(StrEq("incrementRemoteProgress")));
}

TEST_F(QVTaskNotificationTest, ASquatterThatDescribesNothingReceivesNothing) {
  CallbackHost host({"--name", kFirst});
  EXPECT_EQ(printed(postEverything), "");
  EXPECT_EQ(host.timesAsked(), 5U);
  EXPECT_THAT(host.messages(), IsEmpty());
}

TEST_F(QVTaskNotificationTest, BrokenDescriptionsAnswerNothingAndAreNotReported) {
  const std::string file = sandbox_.home() + "/description.xml";
  for (const char* description : {"<node><interface", "\xFF\xFE", "<node/><node/>"}) {
    std::ofstream(file, std::ios::trunc) << description;
    CallbackHost host({"--name", kFirst, "--description", file});
    EXPECT_EQ(printed(postEverything), "") << description;
    EXPECT_THAT(host.messages(), IsEmpty());
  }
}

TEST_F(QVTaskNotificationTest, HostsThatComeAndGoBetweenPostsAreFoundAndMissed) {
  {
    CallbackHost host(everythingAnswered(kFirst));
    QVTaskNotification::postIncrementProgress();
    EXPECT_THAT(host.waitForMessages(1), ElementsAre("incrementRemoteProgress"));
  }
  EXPECT_EQ(printed(QVTaskNotification::postTaskFinished), "");
  CallbackHost host(everythingAnswered(kSecond));
  QVTaskNotification::postDisconnect();
  EXPECT_THAT(host.waitForMessages(1), ElementsAre("postDisconnect"));
}

TEST_F(QVTaskNotificationTest, AHostThatLeavesAfterTheFirstMessageIsMissedByTheNext) {
  std::vector<std::string> options = everythingAnswered(kFirst);
  options.insert(options.end(), {"--leave-after", "1"});
  CallbackHost host(options);
  QVTaskNotification::postIncrementProgress();
  EXPECT_THAT(host.waitForMessages(1), ElementsAre("incrementRemoteProgress"));
  EXPECT_EQ(printed([] { QVTaskNotification::postTaskFinished(); }), "");
}

TEST_F(QVTaskNotificationTest, AHostThatDiesWhileItIsAskedIsReportedAsGone) {
  CallbackHost host({"--name", kFirst, "--when-asked", "leave"});
  EXPECT_THAT(printed(QVTaskNotification::postTaskFinished),
              HasSubstr("Exception in +[QVTaskNotification postTaskFinished]. "
                        "NSInvalidSendPortException - "));
}

TEST_F(QVTaskNotificationTest, AHungHostCostsTheBoundAndIsReportedAsATimeout) {
  CallbackHost host({"--name", kFirst, "--when-asked", "stop"});
  constexpr char kReport[] =
      "Exception in +[QVTaskNotification postIncrementProgress]. NSPortTimeoutException - ";
  QVLog::createNewLog();
  std::chrono::nanoseconds time{};
  EXPECT_THAT(printed([&] { time = timeOf(QVTaskNotification::postIncrementProgress); }),
              HasSubstr(kReport));
  EXPECT_LT(time, kBound);
  ASSERT_FALSE(QVLog::availableLogs().empty());
  EXPECT_THAT(test::readFile(QVLog::availableLogs().front()), HasSubstr(kReport));
}

TEST_F(QVTaskNotificationTest, AFloodingHostCostsTheBoundAndIsReportedAsATimeout) {
  CallbackHost host({"--name", kFirst, "--when-asked", "flood"});
  std::chrono::nanoseconds time{};
  EXPECT_THAT(printed([&] { time = timeOf(QVTaskNotification::postTaskFinished); }),
              HasSubstr("Exception in +[QVTaskNotification postTaskFinished]. "
                        "NSPortTimeoutException - "));
  EXPECT_LT(time, kBound);
}

TEST_F(QVTaskNotificationTest, EveryPostReportsByItsOwnName) {
  const std::pair<void (*)(), const char*> posts[] = {
      {QVTaskNotification::postIncrementProgress, "postIncrementProgress]"},
      {QVTaskNotification::postTaskFinished, "postTaskFinished]"},
      {[] { QVTaskNotification::postTaskError(kError); }, "postTaskError:]"},
      {[] { QVTaskNotification::postTaskErrorString("x"); }, "postTaskErrorString:]"},
      {QVTaskNotification::postDisconnect, "postDisconnect]"}};
  for (const auto& [post, name] : posts) {
    CallbackHost host({"--name", kFirst, "--when-asked", "leave"});
    EXPECT_THAT(printed(post), HasSubstr(std::string("+[QVTaskNotification ") + name + ". "));
  }
}

TEST_F(QVTaskNotificationTest, PostsFromManyThreadsAllArrive) {
  CallbackHost host(everythingAnswered(kFirst));
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back(QVTaskNotification::postIncrementProgress);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(host.waitForMessages(8).size(), 8U);
}

TEST_F(QVTaskNotificationTest, AnErrorOfOddTextsArrivesMadeValid) {
  CallbackHost host({"--name", kFirst, "--answers", "postError", "--answers", "postErrorString"});
  QVTaskNotification::postTaskError({"", 0, "\xFF"});
  QVTaskNotification::postTaskErrorString("100% \xFE");
  EXPECT_THAT(host.waitForMessages(2),
              ElementsAre("postError {code=x:0, description=s:\uFFFD, domain=s:}",
                          "postErrorString 100% \uFFFD"));
}

// As superuser with a person at the console who has a session bus.
class QVTaskNotificationSuperuserTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    sandbox_.setConsoleUser(Sandbox::kConsoleUser);
    bus_ = std::make_unique<SessionBus>(sandbox_, Sandbox::kConsoleUserId);
    bus_->announce();
  }

  Sandbox sandbox_;
  std::unique_ptr<SessionBus> bus_;
};

TEST_F(QVTaskNotificationSuperuserTest, TheConsoleUsersHostIsTold) {
  CallbackHost host(everythingAnswered(kSecond), Sandbox::kConsoleUserId);
  EXPECT_EQ(printed(postEverything), "");
  EXPECT_THAT(host.waitForMessages(5),
              ElementsAre("incrementRemoteProgress", "postFinishedTask",
                          "postError {code=x:-36, description=s:It did not work., "
                          "domain=s:com.quorvale.install}",
                          "postErrorString No room", "postDisconnect"));
}

TEST_F(QVTaskNotificationSuperuserTest, TheNameSentIsThisProcesssNotItsChilds) {
  CallbackHost host(withRicherOnes({"--name", kFirst}), Sandbox::kConsoleUserId);
  QVTaskNotification::postTaskErrorString("x");
  EXPECT_THAT(host.waitForMessages(1),
              ElementsAre("postErrorStringUserInfo x {appName=s:QVTaskNotificationTest}"));
}

TEST_F(QVTaskNotificationSuperuserTest, AHungHostCostsTheBoundAndIsReportedAsATimeout) {
  CallbackHost host({"--name", kFirst, "--when-asked", "stop"}, Sandbox::kConsoleUserId);
  std::chrono::nanoseconds time{};
  EXPECT_THAT(printed([&] { time = timeOf(QVTaskNotification::postDisconnect); }),
              HasSubstr("Exception in +[QVTaskNotification postDisconnect]. "
                        "NSPortTimeoutException - "));
  EXPECT_LT(time, kBound);
}

TEST_F(QVTaskNotificationSuperuserTest, WithNobodyAtTheConsoleNobodyIsTold) {
  CallbackHost host(everythingAnswered(kFirst), Sandbox::kConsoleUserId);
  sandbox_.setNobodyAtConsole();
  EXPECT_EQ(printed(postEverything), "");
  EXPECT_EQ(host.timesAsked(), 0U);
}

}  // namespace
