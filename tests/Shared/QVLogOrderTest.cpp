#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "Shared/QVLog.h"
#include "platform/Exception.h"
#include "tests/support/GatedFile.h"
#include "tests/support/LogFixture.h"
#include "tests/support/WaitFor.h"

// What the log does before what, seen with a disk that stands still.
namespace {

using std::literals::chrono_literals::operator""ms;

// Takes the place of standard output.
class OutputPipe {
 public:
  OutputPipe() : saved_(::dup(STDOUT_FILENO)) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe(ends), 0);
    ::dup2(ends[1], STDOUT_FILENO);
    ::close(ends[1]);
    readingEnd_ = ends[0];
  }
  ~OutputPipe() {
    ::dup2(saved_, STDOUT_FILENO);
    ::close(saved_);
    ::close(readingEnd_);
  }
  OutputPipe(const OutputPipe&) = delete;
  OutputPipe& operator=(const OutputPipe&) = delete;

  bool isEmpty() const {
    pollfd entry{readingEnd_, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 0;
  }
  std::string read() const {
    char buffer[256];
    const ssize_t size = ::read(readingEnd_, buffer, sizeof buffer);
    return {buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
  }

 private:
  int saved_;
  int readingEnd_ = -1;
};

class QVLogOrderTest : public test::LogFixture {
 protected:
  QVLogOrderTest() : gate_(std::make_shared<test::GatedFile>()) { useFile(gate_); }
  ~QVLogOrderTest() override { gate_->open(); }

  std::shared_ptr<test::GatedFile> gate_;
};

// The main thread, as other threads wait for a short message in any case.
TEST_F(QVLogOrderTest, TheHandlerOfUncaughtExceptionsReturnsAfterTheReasonIsOnTheDisk) {
  std::atomic<bool> onDisk = false;
  std::thread disk([&] {
    EXPECT_TRUE(gate_->waitForAppend());
    std::this_thread::sleep_for(50ms);
    onDisk = true;
    gate_->open();
  });
  testing::internal::CaptureStdout();
  uncaughtExceptionHandler(platform::Exception("NSGenericException", "why"));
  EXPECT_TRUE(onDisk);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "why\n");
  disk.join();
}

TEST_F(QVLogOrderTest, WhatIsPrintedAsWellIsPrintedOnceItIsLogged) {
  const OutputPipe output;
  std::thread caller([] { QVLog::appendLogAndPrint("short"); });
  EXPECT_TRUE(gate_->waitForAppend());
  EXPECT_FALSE(test::waitFor([&] { return !output.isEmpty(); }, 50ms));
  gate_->open();
  caller.join();
  EXPECT_EQ(output.read(), "short\n");
}

}  // namespace
