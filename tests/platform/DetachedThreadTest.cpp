#include "platform/DetachedThread.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/Exception.h"
#include "tests/support/Sandbox.h"
#include "tests/support/ThreadLimit.h"

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
  const test::ThreadLimit noThreads;
  ASSERT_TRUE(noThreads.isSet());
  EXPECT_THROW(platform::detachThread([] {}), platform::Exception);
}

}  // namespace
