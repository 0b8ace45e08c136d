#include "Shared/QVException.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Shared/QVLog.h"
#include "tests/support/GatedFile.h"
#include "tests/support/LogFixture.h"

namespace {

using platform::Exception;
using testing::ElementsAre;

class QVExceptionTest : public test::LogFixture {
 protected:
  QVExceptionTest() : file_(std::make_shared<test::GatedFile>()) {
    file_->open();
    useFile(file_);
  }

  // Logs the exception; what was printed is in printed_.
  std::string log(const Exception& exception, std::string_view method) {
    testing::internal::CaptureStdout();
    std::string message = QVException::logException(exception, method);
    QVLog::finishWriting();
    printed_ = testing::internal::GetCapturedStdout();
    return message;
  }

  std::shared_ptr<test::GatedFile> file_;
  std::string printed_;
};

TEST_F(QVExceptionTest, AnExceptionIsLoggedPrintedAndAnswered) {
  const std::string expected =
      "Exception in -[QVTaskEx launchAsyncTask]. NSRangeException - index 5 beyond bounds.";
  EXPECT_EQ(log({"NSRangeException", "index 5 beyond bounds"}, "-[QVTaskEx launchAsyncTask]"),
            expected);
  EXPECT_EQ(printed_, expected + "\n");
  EXPECT_THAT(messagesIn(file_->contents()), ElementsAre(expected));
}

TEST_F(QVExceptionTest, PercentSignsAreReadOnceWhenPrintedTwiceWhenLoggedAndNeverInTheAnswer) {
  EXPECT_EQ(log({"N", "%%%%"}, "+[C o]"), "Exception in +[C o]. N - %%%%.");
  EXPECT_EQ(printed_, "Exception in +[C o]. N - %%.\n");
  EXPECT_THAT(messagesIn(file_->contents()), ElementsAre("Exception in +[C o]. N - %."));
}

TEST_F(QVExceptionTest, ADirectiveInTheReasonReadsNoMemory) {
  EXPECT_EQ(log({"N", "50%d %s%n%@"}, "+[C o]"), "Exception in +[C o]. N - 50%d %s%n%@.");
  EXPECT_EQ(printed_, "Exception in +[C o]. N - 500 (null)(null).\n");
}

TEST_F(QVExceptionTest, OnlyTheExactNameIsATimeOut) {
  EXPECT_TRUE(QVException::didTimeout({"NSPortTimeoutException", "late"}));
  EXPECT_FALSE(QVException::didTimeout({"nsporttimeoutexception", "late"}));
  EXPECT_FALSE(QVException::didTimeout({"NSPortTimeoutException2", "late"}));
  EXPECT_FALSE(QVException::didTimeout({"NSInvalidSendPortException", "NSPortTimeoutException"}));
}

}  // namespace
