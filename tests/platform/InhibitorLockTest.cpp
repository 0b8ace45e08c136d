#include "platform/InhibitorLock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <chrono>
#include <csignal>
#include <optional>

#include "tests/support/LoginManager.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WaitFor.h"

namespace {

using Behaviour = test::LoginManager::Behaviour;
using platform::InhibitorLock;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kBlock[] = "shutdown:sleep|Quorvale Update Helper|Because 100%|block";
constexpr char kDelay[] = "shutdown:sleep|Quorvale Update Helper|Because 100%|delay";
// What the header promises, and what a busy machine may add.
constexpr seconds kSilenceBound(2);

class InhibitorLockTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::Sandbox::canSimulateMachine()) GTEST_SKIP() << test::Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
  }

  test::LoginManager& with(Behaviour behaviour) { return manager_.emplace(sandbox_, behaviour); }

  static bool isGranted() { return InhibitorLock("Because 100%").isGranted(); }

  test::Sandbox sandbox_;

 private:
  std::optional<test::LoginManager> manager_;
};

TEST_F(InhibitorLockTest, BlocksSleepAndShuttingDownForAsLongAsOneLives) {
  test::LoginManager& manager = with(Behaviour::grants);
  {
    const InhibitorLock wish("Because 100%");
    EXPECT_TRUE(wish.isGranted());
    EXPECT_THAT(manager.requests(), ElementsAre(kBlock));
    EXPECT_EQ(manager.released(), 0U);
  }
  EXPECT_TRUE(test::waitFor([&] { return manager.released() == 1; }));
}

TEST_F(InhibitorLockTest, WhoMayNotBlockDelays) {
  test::LoginManager& manager = with(Behaviour::grantsOnlyDelays);
  EXPECT_TRUE(isGranted());
  EXPECT_THAT(manager.requests(), ElementsAre(kBlock, kDelay));
}

TEST_F(InhibitorLockTest, ARefusalIsNoFailure) {
  test::LoginManager& manager = with(Behaviour::refuses);
  EXPECT_FALSE(isGranted());
  EXPECT_THAT(manager.requests(), ElementsAre(kBlock, kDelay));
}

TEST_F(InhibitorLockTest, AnAnswerWithoutALockIsARefusal) {
  with(Behaviour::answersNonsense);
  EXPECT_FALSE(isGranted());
}

TEST_F(InhibitorLockTest, ASilentLoginManagerIsWaitedForWithinTheBoundAndNotAskedAgain) {
  test::LoginManager& manager = with(Behaviour::hangs);
  const auto begin = steady_clock::now();
  EXPECT_FALSE(isGranted());
  EXPECT_LT(steady_clock::now() - begin, kSilenceBound);
  EXPECT_THAT(manager.requests(), ElementsAre(kBlock));
}

TEST_F(InhibitorLockTest, ASilentBusIsWaitedForWithinTheBound) {
  with(Behaviour::grants).hangBus();
  const auto begin = steady_clock::now();
  EXPECT_FALSE(isGranted());
  EXPECT_LT(steady_clock::now() - begin, kSilenceBound);
}

TEST_F(InhibitorLockTest, NobodyIsStartedToAnswer) {
  test::LoginManager& manager = with(Behaviour::absent);
  EXPECT_FALSE(isGranted());
  EXPECT_THAT(manager.requests(), IsEmpty());
}

TEST_F(InhibitorLockTest, WithoutABusNothingIsAsked) {
  ASSERT_EQ(
      ::mount(sandbox_.makeDirectory("no bus").c_str(), "/run/dbus", nullptr, MS_BIND, nullptr), 0);
  const auto begin = steady_clock::now();
  EXPECT_FALSE(isGranted());
  EXPECT_LT(steady_clock::now() - begin, kSilenceBound);
}

TEST_F(InhibitorLockTest, TheEnvironmentDoesNotChooseTheBus) {
  test::LoginManager& manager = with(Behaviour::grants);
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unixexec:path=/bin/false", 1);
  EXPECT_TRUE(isGranted());
  EXPECT_THAT(manager.requests(), ElementsAre(kBlock));
}

TEST_F(InhibitorLockTest, LeavesNoDescriptorBehind) {
  with(Behaviour::grants);
  isGranted();
  const std::size_t before = test::openDescriptors();
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(isGranted());
  EXPECT_EQ(test::openDescriptors(), before);
}

}  // namespace
