#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "Shared/QVLog.h"
#include "platform/Application.h"
#include "platform/Exception.h"
#include "tests/support/GatedFile.h"
#include "tests/support/LogFixture.h"
#include "tests/support/WaitFor.h"

namespace {

using test::GatedFile;
using testing::ElementsAre;
using testing::EndsWith;

class QVLogTerminationTest : public test::LogFixture {
 protected:
  QVLogTerminationTest() : gate_(std::make_shared<GatedFile>()) {}
  ~QVLogTerminationTest() override { gate_->open(); }

  // Has so many texts pending, the first of them under way.
  void fill(int texts) {
    useFile(gate_);
    for (int number = 0; number < texts; ++number) QVLog::fastAppendLog("%i", number);
    ASSERT_TRUE(gate_->waitForAppend());
  }

  std::shared_ptr<GatedFile> gate_;
};

TEST_F(QVLogTerminationTest, NineteenPendingTextsAreWaitedFor) {
  fill(19);
  ASSERT_EQ(QVLog::sharedController().writeQueue()->operationCount(), 19U);
  std::thread opener([this] { gate_->open(); });
  QVLog::willTerminate();
  EXPECT_EQ(messagesIn(gate_->contents()).size(), 19U);
  EXPECT_TRUE(gate_->closed());
  opener.join();
}

TEST_F(QVLogTerminationTest, TwentyPendingTextsAreNotWaitedFor) {
  fill(20);
  QVLog::willTerminate();
  EXPECT_EQ(gate_->contents(), "");
  EXPECT_TRUE(gate_->closed());
  EXPECT_EQ(QVLog::sharedController().fileHandle(), nullptr);
}

TEST_F(QVLogTerminationTest, AfterwardsTextsAreDroppedInSilenceAndCountsStick) {
  becomeOrdinaryUser();
  QVLog& log = QVLog::sharedController();
  QVLog::createNewLog();
  QVLog::appendLog("the last");
  QVLog::willTerminate();
  EXPECT_EQ(log.writeQueue(), nullptr);
  EXPECT_EQ(log.fileHandle(), nullptr);
  testing::internal::CaptureStdout();
  QVLog::appendLog("dropped");
  test::inBackground([] { QVLog::appendLog("dropped"); });
  QVLog::finishWriting();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(log.bytesInQueue(), 14U);
  EXPECT_EQ(messages(1).back(), "the last");
}

TEST_F(QVLogTerminationTest, ForgetsTheName) {
  QVLog::sharedController().setAppName("Named");
  QVLog::willTerminate();
  EXPECT_EQ(QVLog::sharedController().appName(), "QVLogTerminationTest");
}

TEST_F(QVLogTerminationTest, MayHappenTwice) {
  QVLog::willTerminate();
  QVLog::willTerminate();
}

TEST_F(QVLogTerminationTest, DeallocDrainsAndClosesAsWell) {
  gate_->open();
  useFile(gate_);
  QVLog::fastAppendLog("text");
  QVLog::sharedController().dealloc();
  EXPECT_THAT(messagesIn(gate_->contents()), ElementsAre("text"));
  EXPECT_TRUE(gate_->closed());
  EXPECT_EQ(QVLog::sharedController().writeQueue(), nullptr);
}

TEST_F(QVLogTerminationTest, TheApplicationsEndDrainsTheLog) {
  becomeOrdinaryUser();
  EXPECT_EXIT(
      {
        QVLog::createNewLog();
        QVLog::finishWriting();
        for (int number = 1; number <= 15; ++number) QVLog::fastAppendLog("%i", number);
        platform::application::terminate();
      },
      testing::ExitedWithCode(0), "");
  EXPECT_EQ(messages(1).back(), "15");
}

using QVLogDeathTest = QVLogTerminationTest;

void fail(const char* reason) {
  throw platform::Exception("NSGenericException", reason);
}

void failForGood(const char* reason) noexcept {
  fail(reason);
}

TEST_F(QVLogDeathTest, TheReasonOfAnUncaughtExceptionReachesTheFile) {
  becomeOrdinaryUser();
  EXPECT_DEATH(
      {
        QVLog::createNewLog();
        failForGood("nobody caught me");
      },
      "");
  EXPECT_EQ(messages(1).back(), "nobody caught me");
}

TEST_F(QVLogDeathTest, TheReasonOfAnotherThreadsExceptionReachesTheFileBehindAllElse) {
  becomeOrdinaryUser();
  EXPECT_DEATH(
      {
        QVLog::createNewLog();
        std::thread([] {
          for (int number = 0; number < 1000; ++number) QVLog::fastAppendLog("%i", number);
          fail("100% lost");
        }).join();
      },
      "");
  EXPECT_EQ(messages(1).back(), "1000st") << "the reason is a format, and \"% lo\" an octal number";
}

TEST(QVLogHandlerTest, TheReasonIsPrintedToo) {
  testing::internal::CaptureStdout();
  QVLog::sharedController().setFileHandle(std::make_shared<GatedFile>());
  QVLog::sharedController().setWriteQueue(nullptr);
  uncaughtExceptionHandler(platform::Exception("NSGenericException", " why\n"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "why\n");
}

}  // namespace
