#include "platform/DetachedThread.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <future>
#include <thread>

#include "platform/Exception.h"
#include "tests/support/Sandbox.h"

namespace {

TEST(DetachedThreadTest, RunsTheWorkOnAnotherThread) {
  std::promise<std::thread::id> ran;
  platform::detachThread([&ran] { ran.set_value(std::this_thread::get_id()); });
  EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
}

TEST(DetachedThreadTest, RaisesThePlatformsExceptionWhenNoThreadCanBeMade) {
  if (!test::Sandbox::canSimulateMachine()) GTEST_SKIP() << test::Sandbox::kNeedsRoot;
  test::Sandbox sandbox;
  sandbox.simulateMachine();
  sandbox.becomeUser(test::Sandbox::kOtherUser);
  const rlimit noThreads{1, 1};
  ASSERT_EQ(::setrlimit(RLIMIT_NPROC, &noThreads), 0);
  EXPECT_THROW(platform::detachThread([] {}), platform::Exception);
}

}  // namespace
