#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>

#include "tests/support/BesideMainLoop.h"
#include "tests/support/FileOperationFixture.h"
#include "tests/support/SlowFiles.h"
#include "tests/support/WaitFor.h"

namespace {

using std::chrono::milliseconds;
using test::Sandbox;
using test::serveFor;
using test::serveUntil;
using test::SlowFiles;
using test::waitFor;
using testing::IsEmpty;
using testing::Optional;

namespace file_system = platform::file_system;

class FileOperationCancelTest : public test::FileOperationFixture {};

TEST_F(FileOperationCancelTest, ACopyMayBeCancelledFromItsReport) {
  makeFiles(3000);
  recorder_->reaction = [](const Operation& operation, const Report&) { operation->cancel(); };
  started(milliseconds(0));
  EXPECT_TRUE(serveUntilTheEnd());
  serveFor(milliseconds(50));
  EXPECT_EQ(recorder_->ends, 1);
  if (recorder_->resultCode() != 0) {
    EXPECT_EQ(recorder_->resultCode(), ECANCELED);
    EXPECT_THAT(target(), Optional(IsEmpty()));
  }
}

TEST_F(FileOperationCancelTest, ACopyThatWasCancelledBeforeItBeganCopiesNothing) {
  makeFiles(3);
  const Operation operation = FileOperation::create();
  operation->cancel();
  EXPECT_TRUE(operation->schedule().ok());
  EXPECT_TRUE(begin(operation).ok());
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(recorder_->resultCode(), ECANCELED);
  EXPECT_THAT(target(), Optional(IsEmpty()));
}

TEST_F(FileOperationCancelTest, CancellingAfterTheEndDoesNothing) {
  makeFiles(3);
  const Operation operation = started();
  EXPECT_TRUE(serveUntilTheEnd());
  operation->cancel();
  serveFor(milliseconds(20));
  EXPECT_EQ(recorder_->ends, 1);
  EXPECT_TRUE(file_system::exists(copy()));
}

std::uint64_t usedBytes(const std::string& mountPoint) {
  struct statvfs status {};
  EXPECT_EQ(::statvfs(mountPoint.c_str(), &status), 0);
  return (status.f_blocks - status.f_bfree) * status.f_frsize;
}

// How often the suite cancels; QV_CANCELS says another number.
int cancels() {
  const char* const number = std::getenv("QV_CANCELS");
  return number != nullptr ? std::atoi(number) : 20;
}

TEST_F(FileOperationCancelTest, CancelledAtAnyMomentNothingMoreIsWrittenAndNothingStays) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  makeFiles(4000);
  sandbox_.makeFile("tree/large", std::string(kLarge, 'x'));
  std::mt19937 random(20261121);
  int cancelled = 0;
  for (int round = 0; round < cancels(); ++round) {
    startAnew();
    const Operation operation = started(milliseconds(10));
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 120000));
    operation->cancel();
    std::this_thread::sleep_for(milliseconds(100));
    std::uint64_t used = usedBytes(to());
    EXPECT_TRUE(serveUntil([&] {
      const std::uint64_t now = usedBytes(to());
      EXPECT_LE(now, used) << round;
      used = now;
      return recorder_->ends > 0;
    }));
    EXPECT_EQ(recorder_->ends, 1);
    if (recorder_->resultCode() == 0) {
      EXPECT_TRUE(file_system::remove(copy()).ok());
    } else {
      EXPECT_EQ(recorder_->resultCode(), ECANCELED);
      ++cancelled;
    }
    EXPECT_THAT(target(), Optional(IsEmpty())) << round;
  }
  EXPECT_GT(cancelled, 0);
}

TEST_F(FileOperationCancelTest, ACancelledCopyOfALargeFileStopsInTheMiddle) {
  if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
  const std::string disk = sandbox_.mountTmpfs("room", 2UL << 30);
  const std::string file = sandbox_.mountTmpfs("source", 1UL << 30) + "/large";
  const std::string piece(1UL << 20, 'x');
  std::ofstream out(file);
  for (int i = 0; i < 300; ++i) out << piece;
  out.close();
  recorder_->reaction = [](const Operation& operation, const Report&) { operation->cancel(); };
  started(file, disk, "copy", milliseconds(0));
  EXPECT_TRUE(serveUntilTheEnd());
  EXPECT_EQ(recorder_->resultCode(), ECANCELED);
  EXPECT_LT(number(recorder_->reports.back(), FileOperation::kBytesComplete),
            number(recorder_->reports.back(), FileOperation::kTotalBytes));
  EXPECT_THAT(file_system::list(disk), Optional(IsEmpty()));
}

TEST_F(FileOperationCancelTest, TheEndOfTheApplicationEndsTheCopyAndLeavesNothing) {
  if (!SlowFiles::canBeMade()) GTEST_SKIP() << SlowFiles::kNeeds;
  makeFiles(500);
  const SlowFiles slow(tree(), milliseconds(2));
  test::besideMainLoop([this] {
    started();
    EXPECT_TRUE(waitFor([this] { return !target()->empty(); }));
  });
  EXPECT_THAT(target(), Optional(IsEmpty()));
  EXPECT_EQ(recorder_->ends, 0);

  const Operation late = FileOperation::create();
  EXPECT_EQ(late->schedule().code(), ESHUTDOWN);
  EXPECT_EQ(begin(late).code(), ESHUTDOWN);
  EXPECT_THAT(target(), Optional(IsEmpty()));
}

}  // namespace
